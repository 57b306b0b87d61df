#include "store/share_point_writing.h"

#include <algorithm>
#include <string>
#include <vector>

#include "exports/shared_exports_parser.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "platform/shared_file_list.h"
#include "store/backup/backup_advertisement.h"
#include "store/backup/backup_folder.h"
#include "store/directory_access.h"
#include "store/share_point_automount.h"
#include "store/share_point_reading.h"
#include "store/share_point_update.h"
#include "store/sharing_services.h"
#include "volumes/md_config_wrappers.h"

namespace paddock {

namespace {

void deleteReshareMount(DirectoryRecord& record) {
  if (const auto mountName = record.getAttributeFirstValue(schema::kReshareMountName)) {
    delete_local_ds_record_by_name(*mountName, schema::kMounts);
  }
}

// Removes the items that stand for `url`. True when at least one was removed.
bool removeFromSharedFileList(const std::string& url) {
  const auto list = services().sharedFileLists->createSharePointList();
  if (list == nullptr) return false;
  bool removed = false;
  for (const SharedFileList::Item& item : list->snapshot()) {
    if (item->resolve(kResolveQuietly) != url) continue;
    if (list->remove(item) == kSuccess) removed = true;
  }
  return removed;
}

// Deliberate: the directory record goes only when no item of the shared-file list was removed for
// it, and stays when the folder has no URL.
void removeRecord(const SharePointRecord& stored, DirectoryRecordPtr record) {
  const auto url = fileUrl(stored.identifier());
  if (!url) return;
  if (removeFromSharedFileList(*url)) return;
  if (record != nullptr) record->removeRecord();
}

}  // namespace

void delete_sharepoint(const std::string& identifier, const Array& credentials) {
  std::unique_ptr<SharePointRecord> stored;
  get_share_point(identifier, stored);
  DirectoryRecordPtr record;
  get_local_ds_record(schema::kDirectoryPath, identifier, schema::kSharePoints, record);
  if (record != nullptr) deleteReshareMount(*record);
  if (stored != nullptr) {
    delete_automount(*stored, credentials);
    removeRecord(*stored, std::move(record));
    delete_export_record(stored->nfsExportRecord());
  }
  if (MDConfigWrappers::isIndexingEnabledAtPath(identifier)) {
    MDConfigWrappers::setIsIndexingEnabled(false, identifier);
  }
  (void)delete_backup_marker_for_path(identifier);
  // Deliberate: once for every deletion, however many a request has.
  sync_share_point_services();
}

namespace {

void logEndOfCall(const std::string& detail) {
  services().logger->log(kLogError, "paddock_sharing write_sharepoints exception: " + detail);
}

void logError(const std::string& text) {
  services().logger->log(kLogError, "paddock_sharing: " + text);
}

// Whom a failure concerns that is not one share point's alone.
std::string namesOf(const std::vector<SharePointRecord>& sharePoints) {
  constexpr std::size_t kNamed = 10;
  if (sharePoints.empty()) return "the share points";
  std::string text;
  for (std::size_t number = 0; number < std::min(sharePoints.size(), kNamed); ++number) {
    text += (number == 0 ? "the " : ", the ") + sharePoints[number].description();
  }
  if (sharePoints.size() <= kNamed) return text;
  return text + " and " + std::to_string(sharePoints.size() - kNamed) + " more";
}

void logExportsFault(const std::vector<SharePointRecord>& sharePoints) {
  const std::string& fault = shared_exports_parser().fault();
  if (fault.empty()) return;
  logError("The exports file does not follow the change of " + namesOf(sharePoints) + ": " + fault);
}

void writeExportsFile(const std::vector<SharePointRecord>& sharePoints) {
  if (!shared_exports_parser().writeFileKeepingOthersChanges()) logExportsFault(sharePoints);
}

void tellServices(const std::vector<SharePointRecord>& sharePoints) {
  std::vector<std::string> failures;
  sync_share_point_services(&failures);
  for (const std::string& failure : failures) {
    logError("A service was not told of " + namesOf(sharePoints) + ": " + failure);
  }
}

void deleteMarked(const std::vector<SharePointRecord>& sharePoints, const Array& credentials) {
  for (const SharePointRecord& sharePoint : sharePoints) {
    if (sharePoint.isDeleted()) delete_sharepoint(sharePoint.identifier(), credentials);
  }
}

void writeOthers(std::vector<SharePointRecord>& sharePoints, const Array& credentials,
                 Status& overall) {
  for (SharePointRecord& sharePoint : sharePoints) {
    if (sharePoint.isDeleted()) continue;
    const Status status = update_sharepoint(sharePoint, credentials);
    if (overall == kSuccess) overall = status;
  }
}

}  // namespace

Status write_sharepoints(std::vector<SharePointRecord>& sharePoints,
                         [[maybe_unused]] Context& context, const Array& credentials,
                         NetServiceOwner& handler) {
  Status overall = kSuccess;
  try {
    // Manual entries of the file are kept, and so are exports that go with a deletion.
    refresh_exports();
    deleteMarked(sharePoints, credentials);
    writeOthers(sharePoints, credentials, overall);
    writeExportsFile(sharePoints);
    register_share_points_with_hailcast(handler);
    tellServices(sharePoints);
  } catch (...) {
    logEndOfCall(describe_current_exception());
    // What was to be written last is not tried again then.
    logExportsFault(sharePoints);
  }
  return overall;
}

}  // namespace paddock
