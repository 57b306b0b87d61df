// Metadata stores that fail as a FaultPlan says. See faulty_services.h.
#pragma once

#include "platform/metadata_stores.h"
#include "platform/testing/faulty_platform.h"

namespace paddock {

class FaultyMetadataStores : public FaultyForwarder<MetadataStores> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int copyStorePaths(std::shared_ptr<const StorePaths>& paths) override;
  int copyStoreAttributes(const std::string& path, Dictionary& attributes) override;
  int setStoreAttributes(const std::string& path, const Dictionary& attributes) override;
  int createStore(const std::string& path, const Dictionary& attributes) override;
};

}  // namespace paddock
