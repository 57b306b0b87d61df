#include "platform/linux/directory/local_record.h"

#include <cerrno>

namespace paddock {

void LocalAccess::requireWritable() const {
  if (refused) throw DirectoryError(EACCES, "the user may not change the local directory");
}

std::vector<std::string> LocalRecord::getAllAttributes() const {
  std::vector<std::string> names;
  for (AttributeChange& one : read()) names.push_back(std::move(one.attribute));
  return names;
}

Dictionary LocalRecord::getAllAttributesAndValues() const {
  Dictionary dictionary;
  for (const auto& [attribute, values] : read()) dictionary.set(attribute, valueArray(values));
  return dictionary;
}

Array LocalRecord::getAttribute(const std::string& attribute) const {
  for (const AttributeChange& one : read())
    if (one.attribute == attribute) return valueArray(one.values);
  return {};
}

std::optional<std::string> LocalRecord::getAttributeFirstValue(const std::string& attribute) const {
  for (AttributeChange& one : read())
    if (one.attribute == attribute) return std::move(one.values.front());
  return std::nullopt;
}

void LocalRecord::setAttribute(const std::string& attribute, const std::string& value) {
  change({{attribute, directoryValues(attribute, Value(value))}});
}

void LocalRecord::setAttribute(const std::string& attribute, const Array& values) {
  change({{attribute, directoryValues(attribute, values)}});
}

void LocalRecord::removeAttribute(const std::string& attribute) { change({{attribute, {}}}); }

void LocalRecord::setAttributesAndValues(const Dictionary& attributes) {
  change(attributeChanges(attributes));
}

void LocalRecord::removeRecord() {
  access_->requireWritable();
  access_->database->use([&](LocalStore& store) {
    requireSameDirectory();
    store.remove(number_);
  });
}

std::vector<AttributeChange> LocalRecord::read() const {
  return access_->database->use([&](LocalStore& store) {
    requireSameDirectory();
    return store.read(number_);
  });
}

void LocalRecord::change(const std::vector<AttributeChange>& changes) {
  access_->requireWritable();
  access_->database->use([&](LocalStore& store) {
    requireSameDirectory();
    store.change(number_, changes);
  });
}

void LocalRecord::requireSameDirectory() const {
  if (access_->database->generation() != generation_)
    throw DirectoryError(ENOENT, "the record's directory is gone");
}

}  // namespace paddock
