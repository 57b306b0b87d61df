#include "base/status.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace paddock {
namespace {

struct NamedStatus {
  Status status;
  const char* name;
};

class SharingErrorNames : public testing::TestWithParam<NamedStatus> {};

TEST_P(SharingErrorNames, GivesTheName) {
  EXPECT_EQ(sharing_error_string(GetParam().status), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    EveryCode, SharingErrorNames,
    testing::Values(
        NamedStatus{100050, "USER_NOT_FOUND_ERR"}, NamedStatus{100051, "GROUP_NOT_FOUND_ERR"},
        NamedStatus{100052, "CANNOT_CHANGE_PRIVS_ERR"}, NamedStatus{100053, "PRIVS_NOT_FOUND_ERR"},
        NamedStatus{100054, "CANNOT_PROPAGATE_PRIVS_ERR"},
        NamedStatus{100055, "COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR"},
        NamedStatus{100056, "FILE_NOT_FOUND_ERR"}, NamedStatus{100057, "CANNOT_STAT_ERR"},
        NamedStatus{100058, "PATH_TOO_LONG_ERR"}, NamedStatus{100059, "INVALID_ACL_ERR"},
        NamedStatus{100060, "ACL_QUALIFIER_NOT_FOUND_ERR"}, NamedStatus{100061, "ACL_INIT_ERR"},
        NamedStatus{100062, "ACE_PERMSET_NOT_FOUND_ERR"},
        NamedStatus{100063, "ACE_FLAGSET_NOT_FOUND_ERR"},
        NamedStatus{100064, "CANNOT_CREATE_ACL_ENTRY_ERR"},
        NamedStatus{100065, "CANNOT_SET_ACL_TAG_TYPE_ERR"},
        NamedStatus{100066, "CANNOT_SET_ACL_QUALIFIER_ERR"},
        NamedStatus{100067, "CANNOT_SET_ACE_PERMSET_ERR"},
        NamedStatus{100068, "CANNOT_SET_ACE_FLAGSET_ERR"},
        NamedStatus{100069, "CANNOT_SET_ACL_FILE_ERR"},
        NamedStatus{100070, "ACL_UG_TYPE_NOT_FOUND_ERR"},
        NamedStatus{100071, "ACL_UNIQUE_ID_NOT_FOUND_ERR"},
        NamedStatus{100072, "ACL_GROUP_ID_NOT_FOUND_ERR"},
        NamedStatus{100073, "ACL_VALIDATION_ERR"},
        NamedStatus{100074, "CANNOT_RETRIEVE_EXPORT_ERR"},
        NamedStatus{100075, "CANNOT_RETRIEVE_SHARE_POINTS_ERR"},
        NamedStatus{100076, "CANNOT_SAVE_SHARE_POINT_ERR"},
        NamedStatus{100077, "CANNOT_SAVE_EXPORT_ERR"},
        NamedStatus{100078, "CANNOT_SAVE_AUTOMOUNT_ERR"},
        NamedStatus{100079, "CANNOT_DELETE_AUTOMOUNT_ERR"},
        NamedStatus{100080, "CANNOT_SET_QUOTA_STATE_ERR"}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

TEST(UnknownSharingErrors, OtherNumbersGiveTheCLibrarysText) {
  for (const Status status : {ENOENT, EACCES, 100049, 100081, -1, -2, -3}) {
    EXPECT_EQ(sharing_error_string(status), strerror(status)) << status;
  }
}

TEST(StatusOfText, EveryTextLeadsBackToItsStatus) {
  for (const Status status : {1, ENOENT, EACCES, EHWPOISON, 100050, 100080})
    EXPECT_EQ(statusOfText(sharing_error_string(status)), status) << status;
}

TEST(StatusOfText, OtherTextsHaveNone) {
  for (const char* text : {"", "Permission", "permission denied", "Permission denied.",
                           "PERMISSION_DENIED", "Success", "0", "Unknown error 4000"})
    EXPECT_EQ(statusOfText(text), std::nullopt) << text;
}

}  // namespace
}  // namespace paddock
