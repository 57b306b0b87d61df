// Status codes.
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
  GROUP_NOT_FOUND_ERR = 100051,
  CANNOT_CHANGE_PRIVS_ERR = 100052,
  PRIVS_NOT_FOUND_ERR = 100053,
  CANNOT_PROPAGATE_PRIVS_ERR = 100054,
  COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR = 100055,
  FILE_NOT_FOUND_ERR = 100056,
  CANNOT_STAT_ERR = 100057,
  PATH_TOO_LONG_ERR = 100058,
  INVALID_ACL_ERR = 100059,
  ACL_QUALIFIER_NOT_FOUND_ERR = 100060,
  ACL_INIT_ERR = 100061,
  ACE_PERMSET_NOT_FOUND_ERR = 100062,
  ACE_FLAGSET_NOT_FOUND_ERR = 100063,
  CANNOT_CREATE_ACL_ENTRY_ERR = 100064,
  CANNOT_SET_ACL_TAG_TYPE_ERR = 100065,
  CANNOT_SET_ACL_QUALIFIER_ERR = 100066,
  CANNOT_SET_ACE_PERMSET_ERR = 100067,
  CANNOT_SET_ACE_FLAGSET_ERR = 100068,
  CANNOT_SET_ACL_FILE_ERR = 100069,
  ACL_UG_TYPE_NOT_FOUND_ERR = 100070,
  ACL_UNIQUE_ID_NOT_FOUND_ERR = 100071,
  ACL_GROUP_ID_NOT_FOUND_ERR = 100072,
  ACL_VALIDATION_ERR = 100073,
  CANNOT_RETRIEVE_EXPORT_ERR = 100074,
  CANNOT_RETRIEVE_SHARE_POINTS_ERR = 100075,
  CANNOT_SAVE_SHARE_POINT_ERR = 100076,
  CANNOT_SAVE_EXPORT_ERR = 100077,
  CANNOT_SAVE_AUTOMOUNT_ERR = 100078,
  CANNOT_DELETE_AUTOMOUNT_ERR = 100079,
  CANNOT_SET_QUOTA_STATE_ERR = 100080,
};

// The text of a non-zero status: the name of a module code (100050 to 100080), otherwise the C
// library's text for that error number, which for numbers that it does not know is its generic
// unknown-error text. Safe on any thread.
std::string sharing_error_string(Status status);

// The status that has the text: a module code or an error number of the C library. Nothing for
// another text, the generic unknown-error text included. Safe on any thread.
std::optional<Status> statusOfText(std::string_view text);

// Mixin for exceptions that carry a status.
class NumberedError {
 public:
  virtual ~NumberedError() = default;
  // The status that the error stands for, when it knows one.
  virtual std::optional<Status> number() const = 0;

 protected:
  NumberedError() = default;
  NumberedError(const NumberedError&) = default;
  NumberedError& operator=(const NumberedError&) = default;
};

}  // namespace paddock
