// Short forms of directory names on the command line.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"

namespace paddock::keelhouse {

// "users", "groups", "sharepoints" and "mounts" stand for their record types; a text with a ":" is
// a type itself. Throws Failure (usage) for any other text.
std::string recordType(const std::string& text);

// "dsAttrTypeStandard:" before a name without ":".
std::string attributeName(const std::string& text);

// ATTRIBUTE=VALUE words as a dictionary attribute -> array of values; a repeated attribute has
// several. Throws Failure (usage) for words of another form.
Dictionary parseAttributes(const std::vector<std::string>& words);

}  // namespace paddock::keelhouse
