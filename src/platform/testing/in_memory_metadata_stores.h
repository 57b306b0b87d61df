// Metadata stores in memory: the double of the Linux ones.
#pragma once

#include <map>
#include <mutex>

#include "platform/metadata_stores.h"

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
  mutable std::mutex mutex_;
  std::map<std::string, Dictionary> stores_;
  // Null: made when it is asked for.
  std::shared_ptr<const StorePaths> paths_;
};

}  // namespace paddock
