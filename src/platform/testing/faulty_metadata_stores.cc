#include "platform/testing/faulty_metadata_stores.h"

namespace paddock {

int FaultyMetadataStores::copyStorePaths(std::shared_ptr<const StorePaths>& paths) {
  if (!fails("metadataStores.copyStorePaths")) return wrapped().copyStorePaths(paths);
  paths = nullptr;
  return error();
}

int FaultyMetadataStores::copyStoreAttributes(const std::string& path, Dictionary& attributes) {
  if (!fails("metadataStores.copyStoreAttributes")) {
    return wrapped().copyStoreAttributes(path, attributes);
  }
  attributes = {};
  return error();
}

int FaultyMetadataStores::setStoreAttributes(const std::string& path,
                                             const Dictionary& attributes) {
  if (fails("metadataStores.setStoreAttributes")) return error();
  return wrapped().setStoreAttributes(path, attributes);
}

int FaultyMetadataStores::createStore(const std::string& path, const Dictionary& attributes) {
  if (fails("metadataStores.createStore")) return error();
  return wrapped().createStore(path, attributes);
}

}  // namespace paddock
