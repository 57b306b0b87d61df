#include "store/share_point_nfs.h"

#include "exports/nfs_export_record.h"
#include "exports/shared_exports_parser.h"
#include "platform/directory.h"
#include "platform/logger.h"
#include "platform/plugin_commands.h"
#include "platform/services.h"
#include "platform/volume_info.h"
#include "protocol/keys.h"
#include "store/directory_access.h"

namespace paddock {

namespace {

// A copy, so that an export that turns out not to fit leaves the one that is there alone.
std::shared_ptr<NFSExportRecord> mergedWithExisting(const NFSExportRecord& exportRecord,
                                                    NFSExportParser& parser) {
  const auto existing = parser.exportWithPath(exportRecord.identifier());
  if (existing == nullptr) return std::make_shared<NFSExportRecord>(exportRecord);
  auto merged = std::make_shared<NFSExportRecord>(*existing);
  merged->addAttributesFromDictionary(exportRecord.dictionary());
  return merged;
}

void logNotWritten(const SharePointRecord& sharePoint, const NFSExportRecord& exportRecord,
                   const std::string& reason) {
  const bool isOfThePath = exportRecord.path() == sharePoint.identifier();
  services().logger->log(kLogError, "paddock_sharing: The export of the " +
                                        sharePoint.description() +
                                        (isOfThePath ? "" : ", of " + exportRecord.path() + ",") +
                                        " was not written: " + reason);
}

}  // namespace

Status write_export(const SharePointRecord& sharePoint) {
  const auto& exportRecord = sharePoint.nfsExportRecord();
  if (exportRecord->isDeleted()) {
    delete_export_record(exportRecord);
    return kSuccess;
  }
  NFSExportParser& parser = shared_exports_parser();
  const auto merged = mergedWithExisting(*exportRecord, parser);
  if (const auto reason = merged->invalidReason()) {
    logNotWritten(sharePoint, *merged, *reason);
    return CANNOT_SAVE_SHARE_POINT_ERR;
  }
  merged->settleLine();
  parser.addOrReplaceExport(merged);
  parser.writeFileKeepingOthersChanges();
  return kSuccess;
}

namespace {

constexpr const char* kReshareFolder = "/nfs_reshares";
constexpr const char* kFileBrowser = "paddock_filebrowser";

bool hasMountRecord(const std::string& mountSource) {
  try {
    return get_local_node()->findRecord(mountSource, schema::kMounts) != nullptr;
  } catch (...) {
    return false;
  }
}

void requestMountRecord(const std::string& host, const std::string& exportPath,
                        const std::string& mountPoint) {
  services().pluginCommands->doCommand(kFileBrowser,
                                       {{"command", protocol::kNfsWriteMountRec},
                                        {protocol::kNfsServerHostName, host},
                                        {protocol::kNfsExportPath, exportPath},
                                        {protocol::kNfsResharePath, mountPoint}},
                                       kFileBrowser, std::nullopt);
}

}  // namespace

bool is_nfs_reshare(const std::string& path) { return path.starts_with(kReshareFolder); }

void write_nfs_reshare(const std::string& path, DirectoryRecord& record) {
  MountedVolume volume;
  if (services().volumeInfo->statfs(path, volume) != 0) return;
  const std::string& source = volume.f_mntfromname;
  if (hasMountRecord(source)) return;
  const std::size_t colon = source.find(':');
  if (colon == std::string::npos) return;
  const std::size_t end = source.find(':', colon + 1);
  const std::size_t length = end == std::string::npos ? end : end - colon - 1;
  requestMountRecord(source.substr(0, colon), source.substr(colon + 1, length), volume.f_mntonname);
  record.setAttribute(schema::kReshareMountName, source);
}

}  // namespace paddock
