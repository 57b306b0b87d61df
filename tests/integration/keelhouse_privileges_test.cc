// `keelhouse privs` and `keelhouse acl` on real folders, by way of the running daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "integration/keelhouse_fixture.h"
#include "support/nt_acl_samples.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kAttribute = "security.NTACL";
constexpr const char* kZoesGuid = "DEADBEEF-0000-4000-8000-000000000001";

std::string whyNoLists(const std::string& folder) {
  if (::setxattr(folder.c_str(), kAttribute, "probe", 5, 0) != 0)
    return std::string(kAttribute) + " cannot be written here: " + std::strerror(errno);
  ::removexattr(folder.c_str(), kAttribute);
  return "";
}

class KeelhousePrivileges : public KeelhouseFixture {
 protected:
  void SetUp() override {
    // The daemon is started when the plug-in is there.
    KeelhouseTree::SetUp();  // NOLINT(bugprone-parent-virtual-call)
    if (IsSkipped() || HasFatalFailure()) return;
    installPlugin("paddock_denials");
    startDaemon();
    if (HasFatalFailure()) return;
    if (const std::string why = whyNoLists(folder_.path()); !why.empty()) GTEST_SKIP() << why;
    path_ = makeFolder("shared");
    ASSERT_EQ(::chmod(path_.c_str(), 0755), 0);
  }

  struct stat attributes() const {
    struct stat status {};
    EXPECT_EQ(::stat(path_.c_str(), &status), 0);
    return status;
  }
  bool hasAcl() const { return ::getxattr(path_.c_str(), kAttribute, nullptr, 0) >= 0; }

  std::string path_;
};

TEST_F(KeelhousePrivileges, OwnerGroupAndModeAreSetOnFolder) {
  EXPECT_EQ(
      done({"privs", "set", path_, "--owner", "daemon", "--group", "nogroup", "--mode", "0750"}),
      "path: " + path_ +
          "\ntype: directory\nowner: daemon\ngroup: nogroup\nmode: 750 (rwxr-x---)\n"
          "acl: no entries\n");
  EXPECT_EQ(attributes().st_uid, 1U);
  EXPECT_EQ(attributes().st_gid, 65534U);
  EXPECT_EQ(attributes().st_mode & 07777U, 0750U);
  const std::string changed = done({"privs", "set", path_, "--owner", "0"});
  EXPECT_EQ(changed, done({"privs", "show", path_}));
  EXPECT_EQ(attributes().st_uid, 0U);
  EXPECT_EQ(attributes().st_mode & 07777U, 0750U);
}

TEST_F(KeelhousePrivileges, FolderKeepsSpecialBitsUnlessFourDigitsGiven) {
  ASSERT_EQ(::chmod(path_.c_str(), 03755), 0);
  EXPECT_THAT(done({"privs", "set", path_, "--mode", "750"}), HasSubstr("mode: 3750 (rwxr-s--T)"));
  EXPECT_EQ(attributes().st_mode & 07777U, 03750U);
  EXPECT_THAT(done({"privs", "set", path_, "--mode", "2770"}), HasSubstr("mode: 2770 (rwxrws---)"));
  EXPECT_EQ(attributes().st_mode & 07777U, 02770U);
  EXPECT_THAT(done({"privs", "set", path_, "--mode", "0775"}), HasSubstr("mode: 775 (rwxrwxr-x)"));
  EXPECT_EQ(attributes().st_mode & 07777U, 0775U);
}

TEST_F(KeelhousePrivileges, FileLosesSetIdBitsAndGainsNone) {
  const std::string file = folder_.path("file");
  writeWholeFile(file, "x");
  ASSERT_EQ(::chmod(file.c_str(), 06755), 0);
  EXPECT_THAT(done({"privs", "show", file}), HasSubstr("mode: 6755 (rwsr-sr-x)"));
  EXPECT_THAT(done({"privs", "set", file, "--mode", "755"}), HasSubstr("mode: 755 (rwxr-xr-x)"));
  const EndedProgram refused = keelhouse({"privs", "set", file, "--mode", "4711"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.error, HasSubstr("nothing was changed"));
  EXPECT_THAT(done({"privs", "show", file}), HasSubstr("mode: 755 (rwxr-xr-x)"));
}

TEST_F(KeelhousePrivileges, UnknownNamesChangeNothing) {
  const EndedProgram ended =
      keelhouse({"privs", "set", path_, "--owner", "no-such-zoe", "--mode", "700"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.error, HasSubstr("there is no user no-such-zoe, neither on this host"));
  EXPECT_EQ(attributes().st_mode & 07777U, 0755U);
  EXPECT_THAT(keelhouse({"privs", "set", path_, "--group", "no-such-zoes"}).error,
              HasSubstr("there is no group no-such-zoes, neither on this host"));
}

TEST_F(KeelhousePrivileges, WhatIsNotThereIsSaid) {
  for (const char* command : {"privs", "acl"}) {
    const EndedProgram ended = keelhouse({command, "show", folder_.path("none")});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, HasSubstr("FILE_NOT_FOUND_ERR"));
  }
  EXPECT_EQ(keelhouse({"privs", "set", folder_.path("none"), "--mode", "750"}).status, 1);
  EXPECT_EQ(keelhouse({"acl", "set", folder_.path("none"), "allow", "user:root", "read"}).status,
            1);
}

TEST_F(KeelhousePrivileges, AnAclIsSetShownChangedAndCleared) {
  const std::string header = "NO  ACTION  WHO            RIGHTS      INHERITANCE   NAME\n";
  EXPECT_EQ(done({"acl", "set", path_, "allow", "group:nogroup", "read,write:inherit",
                  "deny user:nobody delete:file-inherit"}),
            header +
                "1   allow   group:nogroup  read,write  inherit       -\n"
                "2   deny    user:nobody    delete      file-inherit  -\n");
  EXPECT_TRUE(hasAcl());
  EXPECT_THAT(done({"acl", "add", path_, "--first", "deny", "user:daemon", "full"}),
              StartsWith("NO  ACTION  WHO            RIGHTS      INHERITANCE   NAME\n"
                         "1   deny    user:daemon    full        -             -\n"
                         "2   allow   group:nogroup "));
  done({"acl", "add", path_, "--at", "2", "allow", "user:65534", "search"});
  EXPECT_EQ(done({"acl", "remove", path_, "user:nobody", "1"}),
            "NO  ACTION  WHO            RIGHTS      INHERITANCE  NAME\n"
            "1   allow   group:nogroup  read,write  inherit      -\n");
  EXPECT_THAT(done({"privs", "show", path_}), HasSubstr("acl:\nNO  ACTION  WHO            RIGHTS"));
  EXPECT_EQ(done({"acl", "remove", path_, "group:nogroup"}), path_ + " has no ACL entries.\n");
  EXPECT_FALSE(hasAcl());
  done({"acl", "set", path_, "allow", "user:root", "full"});
  EXPECT_EQ(done({"acl", "clear", path_}),
            path_ +
                " has no ACL entries. By its mode 755 its owner root can read and change, the "
                "group root can read and others can read.\n");
  EXPECT_FALSE(hasAcl());
}

TEST_F(KeelhousePrivileges, WhatIsShownCanBeTypedAgain) {
  done({"acl", "set", path_, "allow", "group:nogroup", "list,add-folder,change-owner",
        "deny user:nobody none", "allow user:2147418113 full:directory-inherit,limit-inherit",
        "allow", kZoesGuid, "write:inherit,only-inherit"});
  const std::string before = done({"acl", "show", path_, "--json"});
  std::vector<std::string> words = {"acl", "set", path_};
  const std::string table = done({"acl", "show", path_});
  for (std::size_t at = table.find('\n') + 1; at < table.size(); at = table.find('\n', at) + 1) {
    std::istringstream row(table.substr(at));
    std::string number, action, who, rights, inheritance;
    row >> number >> action >> who >> rights >> inheritance;
    words.insert(words.end(),
                 {action, who, inheritance == "-" ? rights : rights + ":" + inheritance});
  }
  ASSERT_EQ(words.size(), 3U + 4 * 3);
  done({"acl", "clear", path_});
  done(words);
  EXPECT_EQ(done({"acl", "show", path_, "--json"}), before);
}

TEST_F(KeelhousePrivileges, DirectoryUsersAndGroupsShowNames) {
  done({"record", "put", "users", "no-such-zoe", "RealName=Zoe Z", "UniqueID=2147418113",
        std::string("GeneratedUID=") + kZoesGuid});
  done({"record", "put", "groups", "no-such-zoes", "PrimaryGroupID=2147418114"});
  EXPECT_EQ(
      done({"acl", "set", path_, "allow", "no-such-zoe", "read", "allow", "no-such-zoes", "write"}),
      "NO  ACTION  WHO                 RIGHTS  INHERITANCE  NAME\n"
      "1   allow   user:no-such-zoe    read    -            Zoe Z\n"
      "2   allow   group:no-such-zoes  write   -            -\n");
  EXPECT_THAT(done({"acl", "remove", path_, "user:2147418113"}),
              HasSubstr("\n1   allow   group:no-such-zoes "));
  const EndedProgram unknown = keelhouse({"acl", "add", path_, "allow", "no-such-tim", "read"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.error, HasSubstr("there is no user or group no-such-tim"));
  EXPECT_THAT(done({"acl", "show", path_}), HasSubstr("group:no-such-zoes"));
}

TEST_F(KeelhousePrivileges, UnreadableAclCanOnlyBeReplaced) {
  ASSERT_EQ(::setxattr(path_.c_str(), kAttribute, "no list", 7, 0), 0);
  const EndedProgram shown = keelhouse({"acl", "show", path_});
  EXPECT_EQ(shown.status, 1);
  EXPECT_THAT(shown.error, HasSubstr("(INVALID_ACL_ERR, 100059)\n  error: "));
  EXPECT_EQ(keelhouse({"acl", "add", path_, "allow", "user:root", "read"}).status, 1);
  // The daemon leaves such a list as it is, and reports success.
  EXPECT_EQ(keelhouse({"acl", "clear", path_}).status, 1);
  EXPECT_THAT(done({"privs", "show", path_}), HasSubstr("acl: cannot be read, INVALID_ACL_ERR"));
  EXPECT_THAT(done({"acl", "set", path_, "allow", "user:root", "read"}), HasSubstr("user:root"));
}

TEST_F(KeelhousePrivileges, EntriesBeyondFileSystemCapacityAreRefused) {
  done({"acl", "set", path_, "allow", "user:root", "read"});
  std::vector<std::string> words = {"acl", "set", path_};
  for (int count = 0; count < 1001; ++count) words.emplace_back("allow user:nobody read");
  const EndedProgram ended = keelhouse(words);
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.error, HasSubstr("(ACL_VALIDATION_ERR, 100073)"));
  EXPECT_THAT(done({"acl", "show", path_}), HasSubstr("user:root"));
}

TEST_F(KeelhousePrivileges, TheProjectionShowsTheKernelsEntries) {
  done({"acl", "set", path_, "allow", "user:nobody", "read,write:inherit", "deny", "group:nogroup",
        "list,read-extended", "allow", kZoesGuid, "read"});
  if (::getxattr(path_.c_str(), "system.posix_acl_access", nullptr, 0) < 0)
    GTEST_SKIP() << "no POSIX ACL on " << path_ << ": " << std::strerror(errno);
  EXPECT_EQ(done({"acl", "show", "--projection", path_}),
            "NO  WHO                                   KERNEL  INSIDE  BEYOND THE KERNEL\n"
            "1   user:nobody                           rwx     rwx     not the kernel's to give: "
            "delete, write-attributes\n"
            "2   group:nogroup                         --x     -       a group is denied: the "
            "kernel still lets in members who get in by another group\n"
            "3   DEADBEEF-0000-4000-8000-000000000001  -       -       no uid or gid of this "
            "system: the kernel's ACL cannot name it\n"
            "The kernel's ACL has no entry for DEADBEEF-0000-4000-8000-000000000001.\n");
  std::string error;
  const auto value = wire::parseJson(done({"acl", "show", "--projection", path_, "--json"}), error);
  ASSERT_TRUE(value && value->array() != nullptr) << error;
  EXPECT_EQ(*value->array()->at(0).dictionary()->string("access"), "rwx");
}

TEST_F(KeelhousePrivileges, InheritableEntriesAreShownAndApplied) {
  const std::string inner = makeFolder("shared/inner");
  done({"acl", "set", path_, "allow", "group:nogroup", "read:inherit", "deny", "user:nobody",
        "write:directory-inherit", "allow", "user:daemon", "search"});
  done({"acl", "set", inner, "allow", "user:root", "full"});
  const std::string both =
      "NO  ACTION  WHO            RIGHTS  INHERITANCE        NAME\n"
      "1   allow   user:root      full    -                  -\n"
      "2   allow   group:nogroup  read    inherit,inherited  -\n";
  EXPECT_EQ(done({"acl", "inherit", inner}), both);
  EXPECT_THAT(done({"acl", "show", inner}), ::testing::Not(HasSubstr("group:nogroup")));
  EXPECT_EQ(done({"acl", "inherit", inner, "--apply"}), both);
  EXPECT_EQ(done({"acl", "show", inner}), both);
  EXPECT_EQ(done({"acl", "inherit", inner}), both);
  done({"acl", "clear", path_});
  EXPECT_EQ(done({"acl", "inherit", inner, "--apply"}),
            "NO  ACTION  WHO        RIGHTS  INHERITANCE  NAME\n"
            "1   allow   user:root  full    -            -\n");
}

// Made by an SMB client: nothing falls back to the mode, and there is no tail for it.
std::string completeList() { return nt_acl::samples::madeBySamba(1); }

// The entries of the stored list, a tail included.
unsigned storedEntries(const std::string& path) {
  std::string value(65536, '\0');
  const ssize_t size = ::getxattr(path.c_str(), kAttribute, value.data(), value.size());
  const auto byte = [&value](std::size_t at) { return static_cast<unsigned char>(value.at(at)); };
  constexpr std::size_t kListOffset = 24;
  constexpr std::size_t kCount = 4;
  if (size <= static_cast<ssize_t>(kListOffset)) return 0;
  const std::size_t list = byte(kListOffset) + 256U * byte(kListOffset + 1);
  return byte(list + kCount) + 256U * byte(list + kCount + 1);
}

TEST_F(KeelhousePrivileges, CompleteListStaysCompleteWithInheritedEntries) {
  const std::string inner = makeFolder("shared/inner");
  const std::string list = completeList();
  ASSERT_EQ(::setxattr(inner.c_str(), kAttribute, list.data(), list.size(), 0), 0);
  ASSERT_EQ(storedEntries(inner), 2U);
  done({"acl", "set", path_, "allow", "group:nogroup", "read:inherit"});
  EXPECT_GT(storedEntries(path_), 1U);
  EXPECT_THAT(done({"acl", "inherit", inner, "--apply"}),
              HasSubstr("\n2   allow   group:nogroup "));
  EXPECT_EQ(storedEntries(inner), 2U);
}

// A list with a SID of another system's, which goes back as the SID that it was.
TEST_F(KeelhousePrivileges, ReadingRecordsNoForeignSid) {
  const std::string recorded = tree_.path("/var/lib/paddock/foreign-sids.sqlite");
  const std::string list = completeList();
  ASSERT_EQ(::setxattr(path_.c_str(), kAttribute, list.data(), list.size(), 0), 0);
  const std::string document = done({"acl", "show", path_, "--json"});
  done({"acl", "show", path_});
  done({"acl", "inherit", path_});
  done({"privs", "show", path_});
  EXPECT_FALSE(std::filesystem::exists(recorded));
  // From here on somebody means it, and it is known after a restart, too.
  done({"acl", "add", path_, "allow", "user:root", "read"});
  EXPECT_TRUE(std::filesystem::exists(recorded));
  ASSERT_EQ(daemon_->stop(), 0) << daemon_->log();
  startDaemon();
  const std::string other = makeFolder("other");
  const EndedProgram ended = keelhouse({"acl", "set", other, "--from", "-"}, document);
  EXPECT_EQ(ended.status, 0) << ended.error;
  EXPECT_THAT(done({"acl", "show", other}), HasSubstr("5349443A-"));
}

TEST_F(KeelhousePrivileges, FilesHaveThemToo) {
  const std::string file = folder_.path("file");
  writeWholeFile(file, "x");
  EXPECT_THAT(done({"acl", "set", file, "deny", "user:nobody", "write-data,execute"}),
              HasSubstr("1   deny    user:nobody  write-data,execute  -"));
  EXPECT_THAT(done({"privs", "set", file, "--mode", "640"}),
              HasSubstr("type: regular\nowner: root\ngroup: root\nmode: 640 (rw-r-----)\n"));
}

}  // namespace
}  // namespace paddock::testing
