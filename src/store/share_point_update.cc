#include "store/share_point_update.h"

#include <algorithm>
#include <cerrno>

#include "base/guid.h"
#include "base/status.h"
#include "base/text.h"
#include "platform/directory.h"
#include "platform/logger.h"
#include "platform/machine_information.h"
#include "platform/services.h"
#include "platform/shared_file_list.h"
#include "platform/volume_info.h"
#include "store/backup/backup_folder.h"
#include "store/directory_access.h"
#include "store/share_point_automount.h"
#include "store/share_point_nfs.h"
#include "store/share_point_reading.h"
#include "volumes/md_config_wrappers.h"

namespace paddock {

namespace {

constexpr int kLastSuffix = 999;

bool isFree(const std::string& candidate, const std::string& attribute, DirectoryNode& node) {
  DirectoryRecordPtr record;
  const Status status = get_ds_record(attribute, candidate, schema::kSharePoints, record, node);
  return status == kSuccess && record == nullptr;
}

std::string withSuffix(const std::string& baseName, int number, std::size_t maxLength) {
  const std::string suffix = "-" + std::to_string(number);
  const std::size_t room = maxLength > suffix.size() ? maxLength - suffix.size() : 0;
  return std::string(utf8Prefix(baseName, std::min(utf8Length(baseName), room))) + suffix;
}

}  // namespace

std::string unique_share_point_name(const std::string& baseName, const std::string& attribute,
                                    std::size_t maxLength) {
  try {
    const std::shared_ptr<DirectoryNode> node = get_local_node();
    std::string candidate = baseName;
    for (int number = 1; !isFree(candidate, attribute, *node); ++number) {
      candidate = withSuffix(baseName, number, maxLength);
      // Deliberate: the last candidate is returned untested.
      if (number == kLastSuffix) return candidate;
    }
    return candidate;
  } catch (...) {
    return baseName;
  }
}

namespace {

// One share point on its way into the directory.
struct Update {
  SharePointRecord& sharePoint;
  std::shared_ptr<DirectoryNode> node;
  DirectoryRecordPtr record;
  std::string lookupError;
};

void logNotSaved(const SharePointRecord& sharePoint, const std::string& reason) {
  services().logger->log(
      kLogError, "paddock_sharing: The " + sharePoint.description() + " was not saved: " + reason);
}

Status findRecord(Update& update) {
  return get_ds_record(schema::kDirectoryPath, update.sharePoint.identifier(), schema::kSharePoints,
                       update.record, *update.node, &update.lookupError);
}

// A name that is not set, or empty, is not looked up and stays as it is.
template <typename Setter>
void makeUnique(const std::optional<std::string>& name, const char* attribute, std::size_t limit,
                Setter setName) {
  if (name && !name->empty()) setName(unique_share_point_name(*name, attribute, limit));
}

void makeNamesUnique(SharePointRecord& sharePoint) {
  makeUnique(sharePoint.name(), schema::kRecordName, kNoNameLimit,
             [&](std::string name) { sharePoint.setName(std::move(name)); });
  makeUnique(sharePoint.nameOverVSP(), schema::kVspName, kVspNameLimit,
             [&](std::string name) { sharePoint.setNameOverVSP(std::move(name)); });
  makeUnique(sharePoint.nameOverFTP(), schema::kFtpName, kNoNameLimit,
             [&](std::string name) { sharePoint.setNameOverFTP(std::move(name)); });
  makeUnique(sharePoint.nameOverSMB(), schema::kSmbName, kNoNameLimit,
             [&](std::string name) { sharePoint.setNameOverSMB(std::move(name)); });
}

bool insertIntoSharedFileList(const std::string& path) {
  const auto url = fileUrl(path);
  if (!url) return false;
  const auto list = services().sharedFileLists->createSharePointList();
  return list != nullptr && list->insertLast(*url) != nullptr;
}

void addToSharedFileList(const std::string& path) {
  if (insertIntoSharedFileList(path)) return;
  services().logger->log(
      kLogWarning, "paddock_sharing: Failed to update the share point for path " + path +
                       ". This will not affect the share point creation, although it may not be "
                       "visible in certain places (like Browsel) until after a restart.");
}

// Names and creates a new share point's record; replaces the kept lookup status. False when an
// exception ended it.
bool createRecord(Update& update, Status& lookup) {
  try {
    makeNamesUnique(update.sharePoint);
    addToSharedFileList(update.sharePoint.identifier());
    lookup = findRecord(update);
    if (update.record == nullptr) {
      update.record = update.node->newRecord(update.sharePoint.name().value_or(std::string()),
                                             schema::kSharePoints);
    }
    return true;
  } catch (...) {
    logNotSaved(update.sharePoint, reason_of_current_exception());
    return false;
  }
}

// The folder need not exist yet; a folder that cannot be asked for any other reason ends the
// share point.
Status fillMountPoint(SharePointRecord& sharePoint) {
  if (!sharePoint.path()) return kSuccess;
  MountedVolume volume;
  const int error = services().volumeInfo->statfs(*sharePoint.path(), volume);
  if (error == 0) sharePoint.setMountedOnPath(volume.f_mntonname);
  if (error == 0 || error == ENOENT) return kSuccess;
  logNotSaved(sharePoint, sharing_error_string(error));
  return CANNOT_SAVE_SHARE_POINT_ERR;
}

// Paths are compared without letter case, so that the record of another folder may be found.
void logTakeover(const SharePointRecord& stored, const SharePointRecord& sharePoint) {
  if (stored.identifier() == sharePoint.identifier()) return;
  services().logger->log(kLogWarning, "paddock_sharing: The share point for path " +
                                          sharePoint.identifier() + " takes over the record of " +
                                          stored.identifier() +
                                          ", which differs by letter case alone.");
}

SharePointRecord mergeWithStored(const SharePointRecord& sharePoint) {
  std::unique_ptr<SharePointRecord> stored;
  get_share_point(sharePoint.identifier(), stored);
  if (stored != nullptr) logTakeover(*stored, sharePoint);
  SharePointRecord merged = stored != nullptr ? std::move(*stored) : SharePointRecord::record();
  merged.addAttributesFromDictionary(sharePoint.dictionary());
  return merged;
}

Status storeDirectoryForm(const SharePointRecord& merged, DirectoryRecord& record) {
  try {
    record.setAttributesAndValues(merged.dsDictionary());
    return kSuccess;
  } catch (...) {
    logNotSaved(merged, reason_of_current_exception());
    return CANNOT_SAVE_SHARE_POINT_ERR;
  }
}

void removeAutomountAttributes(DirectoryRecord& record) {
  for (const char* attribute :
       {schema::kIsAutomounted, schema::kStaticMountPath, schema::kAutomountDsPath,
        schema::kAutomountFileSystem, schema::kAutomountRecordName}) {
    record.removeAttribute(attribute);
  }
}

// Deliberate: the attributes go also when the share point never had them.
void switchAutomount(const SharePointRecord& merged, const Array& credentials,
                     DirectoryRecord& record) {
  if (merged.isAutomounted()) {
    write_automount(merged, credentials);
    return;
  }
  delete_automount(merged, credentials);
  removeAutomountAttributes(record);
}

// Deliberate: every write of a backup share point gives it a new identifier.
void renewBackupIdentifier(DirectoryRecord& record) {
  record.setAttribute(schema::kBackstowBackupUuid, guidText(services().uuidSource->newUuid()));
}

void switchBackup(const SharePointRecord& merged, DirectoryRecord& record) {
  if (merged.isBackstowBackup()) {
    (void)set_backup_permissions_for_path(merged.identifier());
    renewBackupIdentifier(record);
  } else {
    (void)delete_backup_marker_for_path(merged.identifier());
  }
}

// A failure of it changes no status. Deliberate: of an exception with a status the line names the
// path and then the number, although the text was once made for the other order.
void switchIndexing(const SharePointRecord& merged) {
  const std::string path = merged.identifier();
  try {
    MDConfigWrappers::setIsIndexingEnabled(merged.isIndexingEnabled(), path);
  } catch (...) {
    services().logger->log(kLogError, "paddock_sharing: Could not enable/disable lookwise for " +
                                          path + ": " + describe_current_exception());
  }
}

void keepFirst(Status& kept, Status status) {
  if (kept == kSuccess) kept = status;
}

// Everything that follows from the merged settings, in order. Deliberate: settings that could not
// be stored keep nothing of the rest from being done.
Status applyMerged(const SharePointRecord& merged, const Array& credentials,
                   DirectoryRecord& record) {
  Status status = storeDirectoryForm(merged, record);
  if (merged.nfsExportRecord() != nullptr) {
    keepFirst(status, write_export(merged));
  }
  switchAutomount(merged, credentials, record);
  if (merged.path() && is_nfs_reshare(*merged.path())) {
    write_nfs_reshare(*merged.path(), record);
  }
  switchBackup(merged, record);
  switchIndexing(merged);
  return status;
}

}  // namespace

Status update_sharepoint(SharePointRecord& sharePoint, const Array& credentials) {
  Update update{sharePoint, get_local_node(), nullptr, {}};
  Status lookup = findRecord(update);
  if (update.record == nullptr && !createRecord(update, lookup)) {
    return CANNOT_SAVE_SHARE_POINT_ERR;
  }
  if (lookup != kSuccess) {
    logNotSaved(sharePoint, "its record cannot be looked up: " + update.lookupError);
    return lookup;
  }
  if (const Status status = fillMountPoint(sharePoint); status != kSuccess) return status;
  return applyMerged(mergeWithStored(sharePoint), credentials, *update.record);
}

}  // namespace paddock
