// Metadata stores in memory: the double of the Linux ones.
#pragma once

#include <map>

#include "base/mutex.h"
#include "platform/metadata_stores.h"
#include "platform/testing/call_rules.h"

namespace paddock {

class InMemoryMetadataStores final : public MetadataStores {
 public:
  int copyStorePaths(std::shared_ptr<const StorePaths>& paths) override;
  int copyStoreAttributes(const std::string& path, Dictionary& attributes) override;
  int setStoreAttributes(const std::string& path, const Dictionary& attributes) override;
  int createStore(const std::string& path, const Dictionary& attributes) override;

  // Every store with its attributes.
  std::map<std::string, Dictionary> stores() const;
  // The search level of the path's store; empty without a store or without a level.
  std::string levelOf(const std::string& path) const;
  // Makes a store, or gives the one that is there this level.
  void setLevel(const std::string& path, const std::string& level);

 private:
  mutable Mutex mutex_;
  std::map<std::string, Dictionary> stores_ PADDOCK_GUARDED_BY(mutex_);
  // Null: made when it is asked for.
  std::shared_ptr<const StorePaths> paths_ PADDOCK_GUARDED_BY(mutex_);
};

// Metadata stores. A failure is the errno, nothing read or written. Operations: copyStorePaths,
// copyStoreAttributes, setStoreAttributes, createStore (subject: the path, detail: the search level
// that is set).
class ForwardingMetadataStores final : public Forwarder<MetadataStores> {
 public:
  using Forwarder::Forwarder;
  int copyStorePaths(std::shared_ptr<const StorePaths>& paths) override {
    paths = nullptr;
    const int error = ask("metadataStores.copyStorePaths", {"copyStorePaths", "", ""});
    return error != 0 ? error : wrapped().copyStorePaths(paths);
  }
  int copyStoreAttributes(const std::string& path, Dictionary& attributes) override {
    attributes = {};
    const int error = ask("metadataStores.copyStoreAttributes", {"copyStoreAttributes", path, ""});
    return error != 0 ? error : wrapped().copyStoreAttributes(path, attributes);
  }
  int setStoreAttributes(const std::string& path, const Dictionary& attributes) override {
    const int error =
        ask("metadataStores.setStoreAttributes", {"setStoreAttributes", path, levelIn(attributes)});
    return error != 0 ? error : wrapped().setStoreAttributes(path, attributes);
  }
  int createStore(const std::string& path, const Dictionary& attributes) override {
    const int error = ask("metadataStores.createStore", {"createStore", path, levelIn(attributes)});
    return error != 0 ? error : wrapped().createStore(path, attributes);
  }

 private:
  static std::string levelIn(const Dictionary& attributes) {
    const std::string* level = attributes.string(metadata_store::kSearchLevel);
    return level != nullptr ? *level : std::string();
  }
};

}  // namespace paddock
