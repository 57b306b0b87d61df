#include "store/backup/backup_marker.h"

#include <cerrno>

#include "platform/logger.h"
#include "platform/services.h"
#include "platform/text_file.h"

namespace paddock {

namespace {

constexpr const char* kMarkerName = ".com.veltro.backstow.supported";
constexpr Status kMarkerStays = -1;

// A relative path would be one of the daemon's own working folder.
bool canHoldMarker(const std::string& folder) {
  return folder.starts_with('/') && folder.find('\0') == std::string::npos;
}

// Of a path that leads nowhere, nothing is left to remove.
bool meansNothingIsThere(int error) {
  return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == ELOOP;
}

std::string markerPath(const std::string& folder) {
  return folder.substr(0, folder.find_last_not_of('/') + 1) + "/" + kMarkerName;
}

}  // namespace

Status delete_backup_marker_for_path(const std::string& path) {
  if (!canHoldMarker(path)) return kSuccess;
  const int error = services().textFiles->removeFile(path, kMarkerName);
  if (error == 0 || meansNothingIsThere(error)) return kSuccess;
  // Behind a link that is not followed for a removal, as a rule there is none either.
  if (error == EACCES && !services().textFiles->exists(markerPath(path))) return kSuccess;
  services().logger->log(kLogError,
                         "paddock_sharing: Couldn't delete backup share point marker at " +
                             markerPath(path) + "\nerror: " + sharing_error_string(error));
  return kMarkerStays;
}

}  // namespace paddock
