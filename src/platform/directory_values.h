// What every node asks of names and values before it changes anything.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace paddock {

// Full case folding of UTF-8 text; see `DirectoryNode` on matching.
using CaseFold = std::string (*)(std::string_view);

// An attribute of a record to be replaced. No values: to be removed.
struct AttributeChange {
  std::string attribute;
  std::vector<std::string> values;
};

// Text that a directory can hold: well-formed UTF-8 without NUL. Empty text is.
bool isDirectoryText(std::string_view text);

// Each of these throws DirectoryError EINVAL, its text naming `what` is wrong.
// Not empty and text: names of records, record types and attributes.
void requireDirectoryName(std::string_view name, const char* what);
// A string or an array of at least one string, all of them text.
std::vector<std::string> directoryValues(const std::string& attribute, const Value& value);
std::vector<std::string> directoryValues(const std::string& attribute, const Array& values);
// The changes of a dictionary attribute -> value, in the order of its keys.
std::vector<AttributeChange> attributeChanges(const Dictionary& attributes);

// The values of one attribute as an answer carries them.
Array valueArray(const std::vector<std::string>& values);

}  // namespace paddock
