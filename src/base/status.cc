#include "base/status.h"

#include <array>
#include <cstring>

namespace paddock {

namespace {

// Codes that no operation returns keep their rows, so that the index stays code minus the first.
constexpr std::array<const char*, 31> kStatusNames = {
    "USER_NOT_FOUND_ERR",
    "GROUP_NOT_FOUND_ERR",
    "CANNOT_CHANGE_PRIVS_ERR",
    "PRIVS_NOT_FOUND_ERR",
    "CANNOT_PROPAGATE_PRIVS_ERR",
    "COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR",
    "FILE_NOT_FOUND_ERR",
    "CANNOT_STAT_ERR",
    "PATH_TOO_LONG_ERR",
    "INVALID_ACL_ERR",
    "ACL_QUALIFIER_NOT_FOUND_ERR",
    "ACL_INIT_ERR",
    "ACE_PERMSET_NOT_FOUND_ERR",
    "ACE_FLAGSET_NOT_FOUND_ERR",
    "CANNOT_CREATE_ACL_ENTRY_ERR",
    "CANNOT_SET_ACL_TAG_TYPE_ERR",
    "CANNOT_SET_ACL_QUALIFIER_ERR",
    "CANNOT_SET_ACE_PERMSET_ERR",
    "CANNOT_SET_ACE_FLAGSET_ERR",
    "CANNOT_SET_ACL_FILE_ERR",
    "ACL_UG_TYPE_NOT_FOUND_ERR",
    "ACL_UNIQUE_ID_NOT_FOUND_ERR",
    "ACL_GROUP_ID_NOT_FOUND_ERR",
    "ACL_VALIDATION_ERR",
    "CANNOT_RETRIEVE_EXPORT_ERR",
    "CANNOT_RETRIEVE_SHARE_POINTS_ERR",
    "CANNOT_SAVE_SHARE_POINT_ERR",
    "CANNOT_SAVE_EXPORT_ERR",
    "CANNOT_SAVE_AUTOMOUNT_ERR",
    "CANNOT_DELETE_AUTOMOUNT_ERR",
    "CANNOT_SET_QUOTA_STATE_ERR",
};

constexpr Status kLastStatus = USER_NOT_FOUND_ERR + static_cast<Status>(kStatusNames.size()) - 1;
static_assert(kLastStatus == CANNOT_SET_QUOTA_STATE_ERR);

// The largest number that a system call can fail with (MAX_ERRNO of the kernel).
constexpr Status kLastErrno = 4095;

}  // namespace

std::string sharing_error_string(Status status) {
  if (status >= USER_NOT_FOUND_ERR && status <= kLastStatus) {
    return kStatusNames.at(static_cast<std::size_t>(status - USER_NOT_FOUND_ERR));
  }
  std::array<char, 256> buffer{};
  return strerror_r(status, buffer.data(), buffer.size());
}

std::optional<Status> statusOfText(std::string_view text) {
  for (Status status = USER_NOT_FOUND_ERR; status <= kLastStatus; ++status)
    if (sharing_error_string(status) == text) return status;
  for (Status number = 1; number <= kLastErrno; ++number)
    if (strerrordesc_np(number) != nullptr && sharing_error_string(number) == text) return number;
  return std::nullopt;
}

}  // namespace paddock
