#include "volumes/md_config_wrappers.h"

#include <cstring>
#include <memory>

#include "platform/logger.h"
#include "platform/metadata_stores.h"
#include "platform/services.h"
#include "platform/volume_info.h"
#include "volumes/indexing_command.h"

namespace paddock {

namespace {

using metadata_store::kLevelFSSearchOnly;
using metadata_store::kLevelOff;
using metadata_store::kLevelReadWrite;
using metadata_store::kSearchLevel;

constexpr const char* kClusteredFileSystem = "vkfs";
// The bytes of a file-system type's name.
constexpr std::size_t kTypeNameLength = 16;

void logError(const std::string& text) {
  services().logger->log(kLogError, "paddock_sharing: " + text);
}

bool hasStore(const std::string& path) {
  std::shared_ptr<const StorePaths> paths;
  services().metadataStores->copyStorePaths(paths);
  return paths != nullptr && paths->contains(path);
}

// Empty when it cannot be read.
std::string levelOf(const std::string& path) {
  Dictionary attributes;
  services().metadataStores->copyStoreAttributes(path, attributes);
  const std::string* level = attributes.string(kSearchLevel);
  return level != nullptr ? *level : std::string();
}

// Whether a call to the stores succeeded; `failure` begins the line that says that it did not.
bool succeeded(int error, const char* failure, const std::string& path) {
  if (error == 0) return true;
  logError(std::string(failure) + " at " + path + " (error: " + std::to_string(error) + ")");
  return false;
}

bool raiseToReadWrite(const std::string& path) {
  MetadataStores& stores = *services().metadataStores;
  const Dictionary attributes{{kSearchLevel, kLevelReadWrite}};
  if (hasStore(path))
    return succeeded(stores.setStoreAttributes(path, attributes),
                     "Failed to enable indexing on Lookwise store", path);
  return succeeded(stores.createStore(path, attributes), "Failed to create a R/W Lookwise store",
                   path);
}

bool lowerToFSSearch(const std::string& path) {
  const Dictionary attributes{{kSearchLevel, kLevelFSSearchOnly}};
  return succeeded(services().metadataStores->setStoreAttributes(path, attributes),
                   "Failed to enable FS-Searching on Lookwise store", path);
}

void giveAccess(const std::string& path) {
  if (MDConfigWrappers::isLookwiseACEPresent(path)) return;
  if (!MDConfigWrappers::addLookwiseACE(path)) logError("Failed to set Lookwise ACE on " + path);
}

}  // namespace

void MDConfigWrappers::setIsIndexingEnabled(bool enabled, const std::string& path) {
  if (enabled) {
    enableIndexingForPath(path);
  } else {
    disableIndexingForPath(path);
  }
}

bool MDConfigWrappers::isIndexingEnabledAtPath(const std::string& path) {
  return hasStore(path) && levelOf(path) == kLevelReadWrite;
}

void MDConfigWrappers::enableIndexingForPath(const std::string& path) {
  if (isVelkor(path)) return;
  const bool wasEnabled = isIndexingEnabledAtPath(path);
  if (!wasEnabled && !raiseToReadWrite(path)) return;
  giveAccess(path);
  // By now the indexer can read the folder.
  if (!wasEnabled) run_indexing_command(path, kLevelReadWrite);
}

// Deliberate: switching off never goes below searching of file-system attributes.
void MDConfigWrappers::disableIndexingForPath(const std::string& path) {
  if (isVelkor(path) || !hasStore(path)) return;
  const std::string level = levelOf(path);
  if (level == kLevelFSSearchOnly || level == kLevelOff) return;
  if (lowerToFSSearch(path)) run_indexing_command(path, kLevelFSSearchOnly);
}

bool MDConfigWrappers::isVelkor(const std::string& path) {
  MountedVolume volume;
  if (path.empty() || services().volumeInfo->statfs(path, volume) != 0) return false;
  return std::strncmp(volume.f_fstypename.c_str(), kClusteredFileSystem, kTypeNameLength) == 0;
}

}  // namespace paddock
