#include "store/backup/backup_share_points.h"

#include <utility>

#include "store/directory_access.h"
#include "store/schema.h"

namespace paddock {

namespace {

Array searchSharePoints() {
  return get_local_node()->findRecordNames(
      kRecordsAll,
      {schema::kBackstowBackup, schema::kBackstowBackupUuid, schema::kVspName, schema::kVspShared},
      schema::kSharePoints, MatchType::caseInsensitiveExact);
}

}  // namespace

Status get_backup_share_points(std::vector<SharePointRecord>& sharePoints) {
  try {
    std::vector<SharePointRecord> found;
    for (const Value& answer : searchSharePoints()) {
      const Dictionary* attributes = answer.dictionary();
      if (attributes == nullptr) continue;
      SharePointRecord record = SharePointRecord::recordWithDSDictionary(*attributes);
      if (record.isBackstowBackup() && record.isSharedOverVSP()) found.push_back(std::move(record));
    }
    sharePoints = std::move(found);
    return kSuccess;
  } catch (...) {
    return CANNOT_RETRIEVE_SHARE_POINTS_ERR;
  }
}

}  // namespace paddock
