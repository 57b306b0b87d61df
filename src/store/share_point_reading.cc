#include "store/share_point_reading.h"

#include <set>
#include <stdexcept>
#include <string>

#include "exports/shared_exports_parser.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "platform/volume_info.h"
#include "store/directory_access.h"
#include "volumes/md_config_wrappers.h"

namespace paddock {

namespace {

void logError(const std::string& text) {
  services().logger->log(kLogError, "paddock_sharing: " + text);
}

void completeMountPoint(SharePointRecord& record) {
  if (!record.mountedOnPath().value_or(std::string()).empty()) return;
  MountedVolume volume;
  if (services().volumeInfo->statfs(record.identifier(), volume) == 0) {
    record.setMountedOnPath(volume.f_mntonname);
  }
}

// Every share point record's attributes. Deliberate: a directory that cannot be searched looks
// like a server without share points.
Array searchSharePoints(DirectoryNode& node) {
  try {
    return node.findRecordNames(kRecordsAll, {kAttributesAll}, schema::kSharePoints,
                                MatchType::caseInsensitiveExact);
  } catch (...) {
    logError("The share points cannot be listed: " + reason_of_current_exception());
    return {};
  }
}

std::unique_ptr<SharePointRecord> completedSharePoint(const Value& answer) {
  std::unique_ptr<SharePointRecord> record;
  const Dictionary* attributes = answer.dictionary();
  if (attributes != nullptr) share_point_from_ds_attributes(*attributes, record);
  if (record == nullptr) throw std::invalid_argument("a share point could not be completed");
  return record;
}

// While it lives, the shared parser has the file's own exports. Those that were removed, but are in
// the file because it could not be written, leave it when it is written next all the same.
class ExportsOfFile {
 public:
  ExportsOfFile() : removals_(shared_exports_parser().unwrittenRemovals()) {
    NFSExportParser& exports = shared_exports_parser();
    if (!exports.readFile() && !exports.fault().empty()) {
      logError("Exports are listed as they were last read: " + exports.fault());
    }
  }
  ExportsOfFile(const ExportsOfFile&) = delete;
  ExportsOfFile& operator=(const ExportsOfFile&) = delete;
  ~ExportsOfFile() {
    for (const std::string& path : removals_) shared_exports_parser().removeExportWithPath(path);
  }

 private:
  const std::set<std::string> removals_;
};

Array readAllSharePoints() {
  const ExportsOfFile exports;
  const auto node = get_local_node();
  Array answers = searchSharePoints(*node);
  // A listing can be large: each share point's form takes the place of its attributes.
  for (Value& answer : answers) answer = completedSharePoint(answer)->dictionary();
  return answers;
}

}  // namespace

Status share_point_from_ds_attributes(const Dictionary& attributes,
                                      std::unique_ptr<SharePointRecord>& record) {
  record = nullptr;
  auto completed =
      std::make_unique<SharePointRecord>(SharePointRecord::recordWithDSDictionary(attributes));
  completed->setIndexingEnabled(MDConfigWrappers::isIndexingEnabledAtPath(completed->identifier()));
  completeMountPoint(*completed);
  std::shared_ptr<NFSExportRecord> exportRecord;
  const Status status = get_export_record(completed->identifier(), exportRecord);
  completed->setNFSExportRecord(std::move(exportRecord));
  if (status == kSuccess) record = std::move(completed);
  return status;
}

Status read_sharepoints([[maybe_unused]] const Value* filter, std::optional<Array>& list) {
  list.reset();
  try {
    Array forms = readAllSharePoints();
    if (!forms.empty()) list = std::move(forms);
    return kSuccess;
  } catch (...) {
    logError("The share points cannot be listed: " + reason_of_current_exception());
    return CANNOT_RETRIEVE_SHARE_POINTS_ERR;
  }
}

Status get_share_point(const std::string& path, std::unique_ptr<SharePointRecord>& record) {
  record = nullptr;
  DirectoryRecordPtr directoryRecord;
  std::string reason;
  const Status lookup = get_local_ds_record(schema::kDirectoryPath, path, schema::kSharePoints,
                                            directoryRecord, &reason);
  if (lookup != kSuccess) {
    logError("The share point for path " + path + " cannot be read: " + reason);
    return CANNOT_RETRIEVE_SHARE_POINTS_ERR;
  }
  if (directoryRecord == nullptr) return kSuccess;
  return share_point_from_ds_attributes(directoryRecord->getAllAttributesAndValues(), record);
}

}  // namespace paddock
