#include "keelhouse/reply_status.h"

#include <cerrno>
#include <limits>

#include "base/status.h"
#include "keelhouse/failure.h"

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kStatusKeys[] = {"status", "readStatus", "writeStatus"};
constexpr std::string_view kErrorKeys[] = {"error", "readError", "writeError"};

bool isFailedStatus(const Value* value) {
  if (value == nullptr) return false;
  if (const auto* number = value->integer()) return *number != 0;
  return value->unsignedInteger() != nullptr;
}

const char* hintFor(std::int64_t status) {
  switch (status) {
    case EACCES:
    case EPERM:
      return "Check who may change this, and the credentials that were given.";
    case ENOENT:
      return "Check that the path or the name is written as it is stored.";
    case EEXIST:
      return "Choose another name.";
    case EINVAL:
      return "Check the names and values that were given.";
    case ENOSPC:
      return "Make room on the volume, then repeat the command.";
    case CANNOT_RETRIEVE_SHARE_POINTS_ERR:
      return "The directory or the exports file cannot be read; the daemon's log says why "
             "(journalctl -u paddockd).";
    case CANNOT_SAVE_SHARE_POINT_ERR:
      return "A name may be taken by another share point (keelhouse share list), or an NFS client "
             "or option cannot be written to the exports file; the daemon's log says more "
             "(journalctl -u paddockd).";
    case USER_NOT_FOUND_ERR:
      return "There is no such user on the daemon's host (getent passwd NAME).";
    case GROUP_NOT_FOUND_ERR:
      return "There is no such group on the daemon's host (getent group NAME).";
    case CANNOT_CHANGE_PRIVS_ERR:
      return "The file system may be read-only, or the path may be missing; what was changed "
             "before "
             "the failure stays.";
    case CANNOT_PROPAGATE_PRIVS_ERR:
      return "The program copyprivs may be missing beside paddock_sharing.so, or there is no room "
             "in "
             "/tmp; the daemon's log says more (journalctl -u paddockd).";
    case FILE_NOT_FOUND_ERR:
      return "Check that the path is written as it is on the server.";
    case INVALID_ACL_ERR:
      return "What is stored there is no ACL that can be read. keelhouse acl set PATH ENTRY... "
             "replaces it.";
    case CANNOT_SET_ACL_FILE_ERR:
      return "The file system may be read-only or full, may keep no ACLs, or may hold fewer "
             "entries "
             "than these.";
    case CANNOT_SET_QUOTA_STATE_ERR:
      return "The volume or the kernel may keep no quotas. With quota_backend = \"accounting\" "
             "below "
             "[volumes] in the daemon's configuration usage can be seen on any volume.";
    default:
      return "The daemon's log may say more (journalctl -u paddockd).";
  }
}

std::string statusText(std::int64_t status) {
  if (status < std::numeric_limits<Status>::min() || status > std::numeric_limits<Status>::max()) {
    return "unknown status";
  }
  return sharing_error_string(static_cast<Status>(status));
}

}  // namespace

bool reportsFailure(const Dictionary& reply) {
  for (const auto key : kStatusKeys) {
    if (isFailedStatus(reply.find(key))) return true;
  }
  for (const auto key : kErrorKeys) {
    if (reply.string(key) != nullptr) return true;
  }
  return false;
}

std::string explained(const std::string& errorText) {
  return errorText + "\n" + hintFor(statusOfText(errorText).value_or(0));
}

void requireStatus(const Dictionary& reply, std::string_view key, const std::string& action) {
  const auto status = reply.integer(key);
  if (!status) throw failure(action + ": the daemon's reply has no " + std::string(key));
  if (*status == 0) return;
  throw failure(action + ": " + statusText(*status) + " (status " + std::to_string(*status) +
                ")\n" + hintFor(*status));
}

}  // namespace paddock::keelhouse
