// In which of the two forms a body travels.
#pragma once

#include <optional>
#include <string_view>

namespace paddock {

enum class BodyForm { json, propertyList };

// The form that a Content-Type header names; nothing for a type that is not known. No type (an
// empty text), and the form type that curl sends by itself, read as JSON.
std::optional<BodyForm> formOfContentType(std::string_view header);

// The form that an Accept header asks for: property list when it names that type before JSON.
BodyForm formOfAccept(std::string_view header);

std::string_view contentTypeOf(BodyForm form);

}  // namespace paddock
