#include "platform/metadata_stores.h"

#include <algorithm>
#include <cerrno>

namespace paddock {

namespace {

bool isPath(const std::string& path) {
  return !path.empty() && path.front() == '/' && path.find('\0') == std::string::npos;
}

bool isAttribute(const Dictionary::Entry& entry) {
  const std::string* text = entry.value.string();
  return !entry.key.empty() && entry.key.find('\0') == std::string::npos && text != nullptr &&
         text->find('\0') == std::string::npos;
}

}  // namespace

int metadata_store::argumentError(const std::string& path, const Dictionary& attributes) {
  return isPath(path) && std::all_of(attributes.begin(), attributes.end(), isAttribute) ? 0
                                                                                        : EINVAL;
}

StorePaths::StorePaths(std::vector<std::string> paths) : paths_(std::move(paths)) {
  std::sort(paths_.begin(), paths_.end());
  index_.reserve(paths_.size());
  index_.insert(paths_.begin(), paths_.end());
}

}  // namespace paddock
