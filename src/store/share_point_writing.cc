#include "store/share_point_writing.h"

#include <algorithm>
#include <string>
#include <vector>

#include "exports/shared_exports_parser.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "store/backup/backup_advertisement.h"
#include "store/exception_text.h"
#include "store/service_synchronisation.h"
#include "store/share_point_deletion.h"
#include "store/share_point_update.h"

namespace paddock {

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
    // What was written into the file by hand stays, and so do exports that go with a deletion.
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
