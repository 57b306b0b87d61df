#include "keelhouse/access/privileges_view.h"

#include <gtest/gtest.h>

#include "support/keelhouse_session.h"

namespace paddock::keelhouse {
namespace {

class PrivilegesView : public SessionFixture {
 protected:
  std::string table(const Array& acl, bool folder = true) {
    return formatAclTable(acl, folder, principals_);
  }
  std::string view(const Dictionary& privileges, const std::optional<ModeAndIds>& all = {}) {
    return formatPrivileges(privileges, all, principals_);
  }
};

Dictionary entry(const char* guid, const char* name, const char* allow, int bitmap, int flags) {
  return {{"guid", guid},
          {"displayName", name},
          {"allowPermission", allow},
          {"bitmap", bitmap},
          {"flags", flags}};
}

TEST_F(PrivilegesView, NumbersEntriesAndUsesTypedNames) {
  answerRecords("", "");
  EXPECT_EQ(table({entry(kNobodyGuid, "Nobody \x1B", "NO", 1396, 96),
                   entry(kNogroupGuid, "nogroup", "YES", 2 | 32, 0),
                   entry(kOtherGuid, kOtherGuid, "YES", 16382, 16 | 64 | 128)}),
            "NO  ACTION  WHO                                   RIGHTS           "
            "INHERITANCE                                NAME\n"
            "1   deny    user:nobody                           write            inherit         "
            "                           Nobody \\x1B\n"
            "2   allow   group:nogroup                         list,add-folder  -               "
            "                           -\n"
            "3   allow   11111111-2222-4333-8444-555555555555  full             "
            "directory-inherit,limit-inherit,inherited  -\n");
}

TEST_F(PrivilegesView, UsesFileNamesForRightsOnFiles) {
  EXPECT_EQ(table({entry(kRootGuid, "root", "YES", 4 | 8, 0)}, false),
            "NO  ACTION  WHO        RIGHTS              INHERITANCE  NAME\n"
            "1   allow   user:root  write-data,execute  -            -\n");
}

TEST_F(PrivilegesView, MarksEntriesOfOtherKind) {
  EXPECT_EQ(table({Dictionary{{"guid", kRootGuid}, {"displayName", "root"}}, Dictionary{}}),
            "NO  ACTION   WHO        RIGHTS  INHERITANCE  NAME\n"
            "1   unknown  user:root  -       -            -\n"
            "2   unknown  -          -       -            -\n");
}

TEST_F(PrivilegesView, FormatsEntryAsTyped) {
  const auto text = [&](const Dictionary& one) {
    return entryText(readAce(one), true, principals_);
  };
  EXPECT_EQ(text(entry(kRootGuid, "", "YES", 2698, 0)), "allow user:root read");
  EXPECT_EQ(text(entry(kNogroupGuid, "", "NO", 16, 32)), "deny group:nogroup delete:file-inherit");
}

TEST_F(PrivilegesView, ShowsOwnerGroupModeAndAcl) {
  EXPECT_EQ(view({{"path", "/srv/\n"},
                  {"fileType", "directory"},
                  {"owner", "anna"},
                  {"group", ""},
                  {"privs", "750"},
                  {"acl", Array{entry(kRootGuid, "root", "YES", 2698, 96)}}}),
            "path: /srv/\\x0A\ntype: directory\nowner: anna\ngroup: -\nmode: 750 (rwxr-x---)\n"
            "acl:\n"
            "NO  ACTION  WHO        RIGHTS  INHERITANCE  NAME\n"
            "1   allow   user:root  read    inherit      -\n");
}

TEST_F(PrivilegesView, ReportsMissingOrUnreadableAcl) {
  EXPECT_EQ(view({{"path", "/srv"}, {"acl", Array{}}}), "path: /srv\nacl: no entries\n");
  EXPECT_EQ(view({{"path", "/srv"}, {"aclErr", "INVALID_ACL_ERR"}}),
            "path: /srv\nacl: cannot be read, INVALID_ACL_ERR\n");
  EXPECT_EQ(view({}), "acl: not told\n");
}

}  // namespace
}  // namespace paddock::keelhouse
