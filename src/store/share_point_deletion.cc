#include "store/share_point_deletion.h"

#include "exports/shared_exports_parser.h"
#include "platform/services.h"
#include "platform/shared_file_list.h"
#include "store/backup/backup_marker.h"
#include "store/directory_access.h"
#include "store/schema.h"
#include "store/service_synchronisation.h"
#include "store/share_point_automount.h"
#include "store/share_point_reading.h"
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

}  // namespace paddock
