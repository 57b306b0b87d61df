#include "platform/directory_values.h"

#include <cerrno>

#include "base/text.h"
#include "platform/directory.h"

namespace paddock {

namespace {

void requireText(const std::string& attribute, const std::string& value) {
  if (!isDirectoryText(value))
    throw DirectoryError(EINVAL, "a value of " + attribute + " is not UTF-8 text");
  if (attribute == schema::kRecordName) requireDirectoryName(value, "a record name");
}

}  // namespace

bool isDirectoryText(std::string_view text) {
  return text.find('\0') == std::string_view::npos && isValidUtf8(text);
}

void requireDirectoryName(std::string_view name, const char* what) {
  if (name.empty()) throw DirectoryError(EINVAL, std::string(what) + " is empty");
  if (!isDirectoryText(name))
    throw DirectoryError(EINVAL, std::string(what) + " is not UTF-8 text");
}

std::vector<std::string> directoryValues(const std::string& attribute, const Value& value) {
  if (const Array* values = value.array()) return directoryValues(attribute, *values);
  return directoryValues(attribute, Array{value});
}

std::vector<std::string> directoryValues(const std::string& attribute, const Array& values) {
  requireDirectoryName(attribute, "an attribute's name");
  if (values.empty()) throw DirectoryError(EINVAL, attribute + " is set to no value");
  std::vector<std::string> texts;
  texts.reserve(values.size());
  for (const Value& value : values) {
    const std::string* text = value.string();
    if (text == nullptr)
      throw DirectoryError(EINVAL, "a value of " + attribute + " is not a string");
    requireText(attribute, *text);
    texts.push_back(*text);
  }
  return texts;
}

std::vector<AttributeChange> attributeChanges(const Dictionary& attributes) {
  std::vector<AttributeChange> changes;
  changes.reserve(attributes.size());
  for (const auto& [attribute, value] : attributes)
    changes.push_back({attribute, directoryValues(attribute, value)});
  return changes;
}

Array valueArray(const std::vector<std::string>& values) {
  Array array(values.begin(), values.end());
  return array;
}

const std::string* firstValue(const Dictionary& answer, const char* attribute) {
  const Array* values = answer.array(attribute);
  return values != nullptr && !values->empty() ? values->front().string() : nullptr;
}

std::string firstText(const Dictionary& answer, const char* attribute) {
  const std::string* text = firstValue(answer, attribute);
  return text != nullptr ? *text : std::string();
}

}  // namespace paddock
