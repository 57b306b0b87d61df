// Statuses: what every worker returns.
//
// A status is a signed 32-bit number. 0 is success; a positive value below 100050 is a system
// error number (errno, or a directory service's own number); 100050 to 100080 are the module's
// own codes; -1, -2 and -3 come from the directory layer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace paddock {

using Status = std::int32_t;

inline constexpr Status kSuccess = 0;
inline constexpr Status kRecordCreationFailed = -2;
inline constexpr Status kRecordRemovalFailed = -3;

enum SharingStatus : Status {
  USER_NOT_FOUND_ERR = 100050,
  GROUP_NOT_FOUND_ERR,
  CANNOT_CHANGE_PRIVS_ERR,
  PRIVS_NOT_FOUND_ERR,
  CANNOT_PROPAGATE_PRIVS_ERR,
  COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR,
  FILE_NOT_FOUND_ERR,
  CANNOT_STAT_ERR,
  PATH_TOO_LONG_ERR,
  INVALID_ACL_ERR,
  ACL_QUALIFIER_NOT_FOUND_ERR,
  ACL_INIT_ERR,
  ACE_PERMSET_NOT_FOUND_ERR,
  ACE_FLAGSET_NOT_FOUND_ERR,
  CANNOT_CREATE_ACL_ENTRY_ERR,
  CANNOT_SET_ACL_TAG_TYPE_ERR,
  CANNOT_SET_ACL_QUALIFIER_ERR,
  CANNOT_SET_ACE_PERMSET_ERR,
  CANNOT_SET_ACE_FLAGSET_ERR,
  CANNOT_SET_ACL_FILE_ERR,
  ACL_UG_TYPE_NOT_FOUND_ERR,
  ACL_UNIQUE_ID_NOT_FOUND_ERR,
  ACL_GROUP_ID_NOT_FOUND_ERR,
  ACL_VALIDATION_ERR,
  CANNOT_RETRIEVE_EXPORT_ERR,
  CANNOT_RETRIEVE_SHARE_POINTS_ERR,
  CANNOT_SAVE_SHARE_POINT_ERR,
  CANNOT_SAVE_EXPORT_ERR,
  CANNOT_SAVE_AUTOMOUNT_ERR,
  CANNOT_DELETE_AUTOMOUNT_ERR,
  CANNOT_SET_QUOTA_STATE_ERR,
};

// The text of a non-zero status: the name of a module code (100050 to 100080), otherwise the C
// library's text for that error number, which for numbers that it does not know is its generic
// unknown-error text. Safe on any thread.
std::string sharing_error_string(Status status);

// The status that has the text: a module code or an error number of the C library. Nothing for
// another text, the generic unknown-error text included. Safe on any thread.
std::optional<Status> statusOfText(std::string_view text);

}  // namespace paddock
