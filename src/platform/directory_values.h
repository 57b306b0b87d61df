// Validation of names and values, common to all nodes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace paddock {

// Full case folding of UTF-8 text; see `DirectoryNode` on matching.
using CaseFold = std::string (*)(std::string_view);

// Replacement of an attribute. No values: removal.
struct AttributeChange {
  std::string attribute;
  std::vector<std::string> values;
};

// Text that a directory can hold: well-formed UTF-8 without NUL. Empty text is.
bool isDirectoryText(std::string_view text);

// Each of these throws DirectoryError EINVAL, with `what` named in its text. Not empty and text:
// names of records, record types and attributes.
void requireDirectoryName(std::string_view name, const char* what);
// A string or an array of at least one string, all of them text.
std::vector<std::string> directoryValues(const std::string& attribute, const Value& value);
std::vector<std::string> directoryValues(const std::string& attribute, const Array& values);
// The changes of a dictionary attribute -> value, in the order of its keys.
std::vector<AttributeChange> attributeChanges(const Dictionary& attributes);

// The values of one attribute in the form of an answer.
Array valueArray(const std::vector<std::string>& values);
// The first value of an attribute in an answer: null, or empty, when there is none or no string.
const std::string* firstValue(const Dictionary& answer, const char* attribute);
std::string firstText(const Dictionary& answer, const char* attribute);

}  // namespace paddock
