// Distinguished names (RFC 4514), read.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace paddock {

// The attributes and values of the first component, unescaped; empty for text that is no name.
// Throws DirectoryError ENOMEM.
std::vector<std::pair<std::string, std::string>> firstComponent(const std::string& dn);

// Whether the text is a name that an entry can have.
bool isDistinguishedName(const std::string& text);

}  // namespace paddock
