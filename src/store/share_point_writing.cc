#include "store/share_point_writing.h"

#include <string>

#include "exports/shared_exports_parser.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "store/backup_advertisement.h"
#include "store/exception_text.h"
#include "store/service_synchronisation.h"
#include "store/share_point_deletion.h"
#include "store/share_point_update.h"

namespace paddock {

namespace {

void logEndOfCall(const std::string& detail) {
  services().logger->log(kLogError, "paddock_sharing write_sharepoints exception: " + detail);
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
    // What was written into the file by hand stays, and so do exports that go with a deletion.
    refresh_exports();
    deleteMarked(sharePoints, credentials);
    writeOthers(sharePoints, credentials, overall);
    shared_exports_parser().writeFileKeepingOthersChanges();
    register_share_points_with_hailcast(handler);
    sync_share_point_services();
  } catch (...) {
    logEndOfCall(describe_current_exception());
  }
  return overall;
}

}  // namespace paddock
