#include "platform/testing/in_memory_metadata_stores.h"

#include <cerrno>

namespace paddock {

namespace {

void merge(Dictionary& into, const Dictionary& attributes) {
  for (const auto& [name, value] : attributes) into.set(name, value);
}

}  // namespace

int InMemoryMetadataStores::copyStorePaths(std::shared_ptr<const StorePaths>& paths) {
  const MutexLock lock(mutex_);
  if (paths_ == nullptr) {
    std::vector<std::string> all;
    for (const auto& store : stores_) all.push_back(store.first);
    paths_ = std::make_shared<const StorePaths>(std::move(all));
  }
  paths = paths_;
  return 0;
}

int InMemoryMetadataStores::copyStoreAttributes(const std::string& path, Dictionary& attributes) {
  attributes = {};
  const MutexLock lock(mutex_);
  const auto store = stores_.find(path);
  if (store == stores_.end()) return ENOENT;
  attributes = store->second;
  return 0;
}

int InMemoryMetadataStores::setStoreAttributes(const std::string& path,
                                               const Dictionary& attributes) {
  if (const int error = metadata_store::argumentError(path, attributes); error != 0) return error;
  const MutexLock lock(mutex_);
  const auto store = stores_.find(path);
  if (store == stores_.end()) return ENOENT;
  merge(store->second, attributes);
  return 0;
}

int InMemoryMetadataStores::createStore(const std::string& path, const Dictionary& attributes) {
  if (const int error = metadata_store::argumentError(path, attributes); error != 0) return error;
  const MutexLock lock(mutex_);
  if (!stores_.emplace(path, attributes).second) return EEXIST;
  paths_ = nullptr;
  return 0;
}

std::map<std::string, Dictionary> InMemoryMetadataStores::stores() const {
  const MutexLock lock(mutex_);
  return stores_;
}

std::string InMemoryMetadataStores::levelOf(const std::string& path) const {
  const MutexLock lock(mutex_);
  const auto store = stores_.find(path);
  if (store == stores_.end()) return {};
  const std::string* level = store->second.string(metadata_store::kSearchLevel);
  return level != nullptr ? *level : std::string();
}

void InMemoryMetadataStores::setLevel(const std::string& path, const std::string& level) {
  const MutexLock lock(mutex_);
  stores_[path].set(metadata_store::kSearchLevel, level);
  paths_ = nullptr;
}

}  // namespace paddock
