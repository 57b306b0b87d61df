#include "store/share_point_export.h"

#include "exports/nfs_export_record.h"
#include "exports/shared_exports_parser.h"
#include "platform/logger.h"
#include "platform/services.h"

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

}  // namespace paddock
