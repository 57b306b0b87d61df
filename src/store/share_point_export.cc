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

}  // namespace

Status write_export(const std::shared_ptr<NFSExportRecord>& exportRecord) {
  if (exportRecord->isDeleted()) {
    delete_export_record(exportRecord);
    return kSuccess;
  }
  NFSExportParser& parser = shared_exports_parser();
  const auto merged = mergedWithExisting(*exportRecord, parser);
  if (!merged->isValid()) {
    services().logger->log(kLogError, "paddock_sharing: The export of " + merged->path() +
                                          " was not written: a host or an option of it cannot "
                                          "stand in the exports file.");
    return CANNOT_SAVE_SHARE_POINT_ERR;
  }
  merged->settleLine();
  parser.addOrReplaceExport(merged);
  parser.writeFileKeepingOthersChanges();
  return kSuccess;
}

}  // namespace paddock
