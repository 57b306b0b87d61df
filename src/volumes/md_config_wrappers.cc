#include "volumes/md_config_wrappers.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/acl.h"
#include "platform/logger.h"
#include "platform/membership.h"
#include "platform/metadata_stores.h"
#include "platform/program_runner.h"
#include "platform/services.h"
#include "platform/volume_info.h"

namespace paddock {

void run_indexing_command(const std::string& path, const std::string& level) {
  std::vector<std::string> argumentVector = services().indexingCommand;
  if (argumentVector.empty()) return;
  const std::string program = argumentVector.front();
  argumentVector.push_back(path);
  argumentVector.push_back(level);
  const int error = services().programRunner->start(program, argumentVector);
  if (error == 0) return;
  services().logger->log(kLogError, "paddock_sharing: Failed to start the indexing command for " +
                                        path + " (error: " + std::to_string(error) + ")");
}

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

// The indexing service's entry in a folder's extended ACL.
namespace {

constexpr std::uint32_t kIndexingUid = 89;
constexpr acl::Permission kPermissions[] = {acl::kExecute, acl::kReadData};
constexpr acl::Flag kFlags[] = {acl::kInherited, acl::kFileInherit, acl::kDirectoryInherit};

acl::AclService& calls() { return *services().acl; }

// Lists and qualifiers are released on every way out.
struct Release {
  template <typename Object>
  void operator()(Object* object) const {
    calls().acl_free(object);
  }
};
using OwnedList = std::unique_ptr<acl::List, Release>;
using OwnedQualifier = std::unique_ptr<Guid, Release>;

OwnedList readAcl(const std::string& path) {
  return OwnedList(calls().acl_get_file(path, acl::kTypeExtended));
}

bool isIndexingAccount(const Guid& guid) {
  std::uint32_t id = 0;
  PrincipalType type{};
  return services().membership->guidToId(guid, id, type) == 0 && type == PrincipalType::user &&
         id == kIndexingUid;
}

bool allows(acl::Entry* entry) {
  int tag = acl::kUndefinedTag;
  return calls().acl_get_tag_type(entry, tag) == 0 && tag == acl::kExtendedAllow;
}

bool holdsSearch(acl::Entry* entry) {
  acl::Permset* permset = nullptr;
  return calls().acl_get_permset(entry, permset) == 0 &&
         calls().acl_get_perm_np(permset, acl::kExecute) == 1;
}

bool isInheritedByFolders(acl::Entry* entry) {
  acl::Flagset* flagset = nullptr;
  return calls().acl_get_flagset_np(entry, flagset) == 0 &&
         calls().acl_get_flag_np(flagset, acl::kDirectoryInherit) == 1;
}

bool isLookwiseEntry(acl::Entry* entry) {
  const OwnedQualifier qualifier(calls().acl_get_qualifier(entry));
  return qualifier != nullptr && isIndexingAccount(*qualifier) && allows(entry) &&
         holdsSearch(entry) && isInheritedByFolders(entry);
}

// A list that cannot be read must not be replaced by one of a single entry.
OwnedList readOrStartAcl(const std::string& path) {
  OwnedList list = readAcl(path);
  if (list == nullptr && errno == ENOENT) list.reset(calls().acl_init(1));
  return list;
}

bool setFlags(acl::Entry* entry) {
  acl::Flagset* flagset = nullptr;
  if (calls().acl_get_flagset_np(entry, flagset) != 0 || calls().acl_clear_flags_np(flagset) != 0)
    return false;
  for (const acl::Flag flag : kFlags) {
    if (calls().acl_add_flag_np(flagset, flag) != 0) return false;
  }
  return calls().acl_set_flagset_np(entry, flagset) == 0;
}

bool setPermissions(acl::Entry* entry) {
  acl::Permset* permset = nullptr;
  if (calls().acl_get_permset(entry, permset) != 0) return false;
  for (const acl::Permission permission : kPermissions) {
    if (calls().acl_add_perm(permset, permission) != 0) return false;
  }
  return calls().acl_set_permset(entry, permset) == 0;
}

bool setQualifier(acl::Entry* entry) {
  Guid guid{};
  return services().membership->uidToGuid(kIndexingUid, guid) == 0 &&
         calls().acl_set_qualifier(entry, guid) == 0;
}

bool appendLookwiseEntry(acl::List* list) {
  acl::Entry* entry = nullptr;
  return calls().acl_create_entry(list, entry) == 0 && setFlags(entry) && setPermissions(entry) &&
         calls().acl_set_tag_type(entry, acl::kExtendedAllow) == 0 && setQualifier(entry);
}

}  // namespace

bool MDConfigWrappers::isLookwiseACEPresent(const std::string& path) {
  const OwnedList list = readAcl(path);
  if (list == nullptr || calls().acl_valid(list.get()) != 0) return false;
  acl::Entry* entry = nullptr;
  for (int which = acl::kFirstEntry; calls().acl_get_entry(list.get(), which, entry) == 0;
       which = acl::kNextEntry) {
    if (isLookwiseEntry(entry)) return true;
  }
  return false;
}

bool MDConfigWrappers::addLookwiseACE(const std::string& path) {
  const OwnedList list = readOrStartAcl(path);
  return list != nullptr && appendLookwiseEntry(list.get()) &&
         calls().acl_set_file(path, acl::kTypeExtended, list.get()) == 0;
}

}  // namespace paddock
