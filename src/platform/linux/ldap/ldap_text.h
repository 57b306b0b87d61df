// Text inside search filters (RFC 4515) and distinguished names (RFC 4514).
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace paddock {

// The value as it stands in a filter: bytes that mean something there, and all that are not
// printable ASCII, as \xx.
std::string filterText(std::string_view value);

// "(attribute=value)" with the value escaped.
std::string equals(std::string_view attribute, std::string_view value);
// "(|...)" and "(&...)"; a single filter stands as it is. Precondition: there is one.
std::string anyOf(const std::vector<std::string>& filters);
std::string allOf(const std::vector<std::string>& filters);

// The value as it stands in a distinguished name.
std::string dnText(std::string_view value);

// Distinguished names (RFC 4514), read.

// The attributes and values of the first component, unescaped; empty for text that is no name.
// Throws DirectoryError ENOMEM.
std::vector<std::pair<std::string, std::string>> firstComponent(const std::string& dn);

// Whether the text is a name that an entry can have.
bool isDistinguishedName(const std::string& text);

}  // namespace paddock
