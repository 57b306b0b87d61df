#include "privileges/file_privs.h"

#include <gtest/gtest.h>

#include "platform/directory.h"
#include "support/privileges_fixture.h"

namespace paddock {

namespace {

using Mode = std::optional<std::uint32_t>;

class PosixPrivileges : public PrivilegesFixture {
 protected:
  ~PosixPrivileges() override { EXPECT_TRUE(logger.lines().empty()) << "nothing is logged here"; }

  Status get(const std::string& path = kFolder) {
    return get_posix_privs(path, owner_, group_, permissions_, fileType_);
  }
  Status set(const char* owner, const char* group, Mode mode, const std::string& path = kFolder) {
    const std::string ownerText = owner != nullptr ? owner : "";
    const std::string groupText = group != nullptr ? group : "";
    return set_posix_privs(path, owner != nullptr ? &ownerText : nullptr,
                           group != nullptr ? &groupText : nullptr, mode);
  }
  // Owner, group and mode as they are now.
  void expectFolder(const std::string& owner, const std::string& group, std::uint32_t mode) {
    const FileAttributes now = tree.attributes(kFolder);
    EXPECT_EQ(now.ownerName, owner);
    EXPECT_EQ(now.groupName, group);
    EXPECT_EQ(now.permissions, mode);
  }

  std::string owner_ = "before";
  std::string group_ = "before";
  Mode permissions_ = 1;
  std::optional<std::string> fileType_ = "before";
};

TEST_F(PosixPrivileges, ReadsNamesModeAndType) {
  tree.set(kFolder, {"anna", "staff", 02750, "directory"});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(owner_, "anna");
  EXPECT_EQ(group_, "staff");
  EXPECT_EQ(permissions_, 02750U);
  EXPECT_EQ(fileType_, "directory");
}

TEST_F(PosixPrivileges, UnnamedOwnerOrGroupReadsAsEmpty) {
  tree.set(kFolder, {std::nullopt, std::nullopt, 0700, "directory"});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(owner_, "");
  EXPECT_EQ(group_, "");
}

TEST_F(PosixPrivileges, UnknownModeOrTypeIsAbsent) {
  tree.set(kFolder, {"anna", "staff", std::nullopt, std::nullopt});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(permissions_, std::nullopt);
  EXPECT_EQ(fileType_, std::nullopt);
}

TEST_F(PosixPrivileges, ALinkIsReadThroughToItsTarget) {
  tree.set("/srv/file", {"anna", "staff", 0640, "regular"});
  tree.setLink("/srv/link", "/srv/file");
  EXPECT_EQ(get("/srv/link"), kSuccess);
  EXPECT_EQ(fileType_, "regular");
  EXPECT_EQ(permissions_, 0640U);
}

TEST_F(PosixPrivileges, MissingPathFailsAndLeavesOutputValues) {
  EXPECT_EQ(get("/srv/missing"), CANNOT_STAT_ERR);
  EXPECT_EQ(owner_, "before");
  EXPECT_EQ(group_, "before");
  EXPECT_EQ(permissions_, 1U);
  EXPECT_EQ(fileType_, "before");
}

TEST_F(PosixPrivileges, UnreadableAttributesReturnSameStatusForAnyReason) {
  for (const int error : {EACCES, EIO, ELOOP})
    EXPECT_EQ(failing(
                  "fileAttributes.read", [this] { return get(); }, 1, error),
              CANNOT_STAT_ERR);
  EXPECT_EQ(owner_, "before");
}

TEST_F(PosixPrivileges, SetsOwnerGroupAndModeTogether) {
  EXPECT_EQ(set("anna", "staff", 02770), kSuccess);
  expectFolder("anna", "staff", 02770);
}

TEST_F(PosixPrivileges, EmptyNamesChangeModeOnly) {
  EXPECT_EQ(set("", "", 0700), kSuccess);
  expectFolder("root", "root", 0700);
}

TEST_F(PosixPrivileges, EachPartIsSetAlone) {
  EXPECT_EQ(set("anna", nullptr, std::nullopt), kSuccess);
  expectFolder("anna", "root", 0755);
  EXPECT_EQ(set(nullptr, "staff", std::nullopt), kSuccess);
  expectFolder("anna", "staff", 0755);
  EXPECT_EQ(set(nullptr, nullptr, 0), kSuccess);
  expectFolder("anna", "staff", 0);
}

TEST_F(PosixPrivileges, NothingToSetIsAppliedAndSucceeds) {
  EXPECT_EQ(set(nullptr, nullptr, std::nullopt), kSuccess);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivileges, NothingToSetFailsWhereTheSystemRefuses) {
  EXPECT_EQ(set(nullptr, nullptr, std::nullopt, "/srv/missing"), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_EQ(failing("fileAttributes.apply", [this] { return set("", "", std::nullopt); }),
            CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(PosixPrivileges, AnUnknownOwnerChangesNothing) {
  EXPECT_EQ(set("nobody-here", "staff", 0700), USER_NOT_FOUND_ERR);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivileges, AnUnknownGroupChangesNothing) {
  EXPECT_EQ(set("anna", "nobody-here", 0700), GROUP_NOT_FOUND_ERR);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivileges, UnknownOwnerIsReportedBeforeUnknownGroup) {
  EXPECT_EQ(set("nobody-here", "nobody-here", 0700), USER_NOT_FOUND_ERR);
}

TEST_F(PosixPrivileges, UserAndGroupNamesAreNotInterchangeable) {
  EXPECT_EQ(set("staff", nullptr, std::nullopt), USER_NOT_FOUND_ERR);
  EXPECT_EQ(set(nullptr, "anna", std::nullopt), GROUP_NOT_FOUND_ERR);
}

TEST_F(PosixPrivileges, NamesThatCannotBeLookedUpAreUnknown) {
  const auto setAll = [this] { return set("anna", "staff", 0700); };
  EXPECT_EQ(failing("accounts.getpwnam", setAll), USER_NOT_FOUND_ERR);
  EXPECT_EQ(failing("accounts.getgrnam", setAll), GROUP_NOT_FOUND_ERR);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivileges, NamesAreResolvedEvenForMissingPath) {
  EXPECT_EQ(set("nobody-here", nullptr, 0700, "/srv/missing"), USER_NOT_FOUND_ERR);
  EXPECT_EQ(set("anna", nullptr, 0700, "/srv/missing"), CANNOT_CHANGE_PRIVS_ERR);
}

TEST_F(PosixPrivileges, RefusedChangeReturnsSameStatusForAnyReason) {
  for (const int error : {EPERM, EROFS, ENOENT, EIO})
    EXPECT_EQ(failing(
                  "fileAttributes.apply", [this] { return set("anna", "staff", 0700); }, 1, error),
              CANNOT_CHANGE_PRIVS_ERR);
  expectFolder("root", "root", 0755);
}

TEST_F(PosixPrivileges, ALinksTargetIsChanged) {
  tree.setLink("/srv/link", kFolder);
  EXPECT_EQ(set("anna", nullptr, 0711, "/srv/link"), kSuccess);
  expectFolder("anna", "root", 0711);
}

class FilePrivsTest : public PrivilegesFixture {
 protected:
  static Dictionary read(const std::string& path = kFolder) {
    Dictionary privileges{{"before", true}};
    EXPECT_EQ(read_file_privs(path, privileges), kSuccess);
    return privileges;
  }
  static Status write(const Dictionary& privileges, const std::string& path = kFolder) {
    return write_file_privs(path, privileges);
  }
  void setMode(std::uint32_t mode) { tree.set(kFolder, {"anna", "staff", mode, "directory"}); }
  std::uint32_t mode() { return tree.attributes(kFolder).permissions.value(); }
  void storeAcl() {
    acl::Entry entry;
    entry.tag = acl::kExtendedDeny;
    entry.qualifier = guidNumber(1);
    entry.permset.permissions = acl::kDelete;
    tree.setAcl(kFolder, {.entries = {entry}});
  }
  static Dictionary storedAclEntry() {
    return {{"displayName", guidText(guidNumber(1))},
            {"guid", guidText(guidNumber(1))},
            {"allowPermission", "NO"},
            {"bitmap", 16},
            {"flags", 0},
            {"isUser", 1061109567}};
  }
  static Dictionary validEntry() {
    return {{"guid", guidText(guidNumber(2))}, {"allowPermission", "YES"}, {"bitmap", 2}};
  }
  static Dictionary invalidEntry() { return {{"guid", "x"}, {"allowPermission", "YES"}}; }
};

class FilePrivilegesReading : public FilePrivsTest {};

TEST_F(FilePrivilegesReading, AFolderHasItsSixKeys) {
  setMode(0755);
  EXPECT_EQ(read(), (Dictionary{{"owner", "anna"},
                                {"group", "staff"},
                                {"fileType", "directory"},
                                {"privs", "755"},
                                {"acl", Array{}},
                                {"path", kFolder}}));
}

TEST_F(FilePrivilegesReading, TheAclStandsBesideTheMode) {
  setMode(0755);
  storeAcl();
  EXPECT_EQ(*read().array("acl"), (Array{storedAclEntry()}));
}

TEST_F(FilePrivilegesReading, TheModeIsAlwaysThreeOctalDigits) {
  const std::vector<std::pair<std::uint32_t, std::string>> modes = {
      {0, "000"},    {05, "005"},   {07, "007"},   {055, "055"}, {0700, "700"},
      {0755, "755"}, {0777, "777"}, {0100, "100"}, {0010, "010"}};
  for (const auto& [mode, text] : modes) {
    setMode(mode);
    EXPECT_EQ(*read().string("privs"), text);
  }
}

TEST_F(FilePrivilegesReading, SetIdAndStickyBitsNeverAppear) {
  for (const std::uint32_t bits : {01000U, 02000U, 04000U, 07000U}) {
    setMode(bits | 0751U);
    EXPECT_EQ(*read().string("privs"), "751");
  }
}

TEST_F(FilePrivilegesReading, UnnamedOwnerAndGroupAreEmpty) {
  tree.set(kFolder, {std::nullopt, std::nullopt, 0700, "directory"});
  EXPECT_EQ(*read().string("owner"), "");
  EXPECT_EQ(*read().string("group"), "");
}

TEST_F(FilePrivilegesReading, UnknownModeOrTypeIsAbsent) {
  tree.set(kFolder, {"anna", "staff", std::nullopt, std::nullopt});
  EXPECT_EQ(
      read(),
      (Dictionary{{"owner", "anna"}, {"group", "staff"}, {"acl", Array{}}, {"path", kFolder}}));
}

TEST_F(FilePrivilegesReading, MissingPathReturnsErrorTextAndEmptyAcl) {
  EXPECT_EQ(
      read("/srv/missing"),
      (Dictionary{{"posixErr", "FILE_NOT_FOUND_ERR"}, {"acl", Array{}}, {"path", "/srv/missing"}}));
}

TEST_F(FilePrivilegesReading, PathsOfAnyKindAreEchoed) {
  for (const std::string& path : {std::string(), std::string("relative"), std::string("/a\0b", 4),
                                  std::string("/a\nb"), "/" + std::string(5000, 'x')}) {
    EXPECT_EQ(read(path),
              (Dictionary{{"posixErr", "FILE_NOT_FOUND_ERR"}, {"acl", Array{}}, {"path", path}}));
  }
}

TEST_F(FilePrivilegesReading, UnreadableAttributesReplaceFourKeysWithErrorText) {
  storeAcl();
  EXPECT_EQ(
      failing("fileAttributes.read", [] { return read(); }),
      (Dictionary{
          {"posixErr", "CANNOT_STAT_ERR"}, {"acl", Array{storedAclEntry()}}, {"path", kFolder}}));
}

TEST_F(FilePrivilegesReading, InvalidAclAddsErrorTextToNormalReply) {
  setMode(0755);
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_EQ(read(), (Dictionary{{"owner", "anna"},
                                {"group", "staff"},
                                {"fileType", "directory"},
                                {"privs", "755"},
                                {"aclErr", "INVALID_ACL_ERR"},
                                {"path", kFolder}}));
}

TEST_F(FilePrivilegesReading, EachFailureOfTheAclHasItsText) {
  const std::vector<std::pair<std::string, std::string>> failures = {
      {"acl.acl_valid", "INVALID_ACL_ERR"},
      {"acl.acl_get_qualifier", "ACL_QUALIFIER_NOT_FOUND_ERR"},
      {"acl.acl_get_permset", "ACE_PERMSET_NOT_FOUND_ERR"},
      {"acl.acl_get_flagset_np", "ACE_FLAGSET_NOT_FOUND_ERR"}};
  storeAcl();
  for (const auto& [call, text] : failures) {
    const Dictionary privileges = failing(call, [] { return read(); });
    EXPECT_EQ(*privileges.string("aclErr"), text);
    EXPECT_FALSE(privileges.contains("acl")) << "not even the entries that could be read";
  }
}

TEST_F(FilePrivilegesReading, FileAndLinkAreReadLikeFolder) {
  tree.set("/srv/file", {"anna", "staff", 0640, "regular"});
  tree.setLink("/srv/link", "/srv/file");
  for (const char* path : {"/srv/file", "/srv/link"}) {
    EXPECT_EQ(*read(path).string("fileType"), "regular");
    EXPECT_EQ(*read(path).string("privs"), "640");
    EXPECT_EQ(*read(path).string("path"), path);
  }
}

TEST_F(FilePrivilegesReading, AnErrorOfTheDirectoryReachesTheCaller) {
  storeAcl();
  EXPECT_THROW(failing("node.findRecordsOfTypes", [] { return read(); }), DirectoryError);
}

class FilePrivilegesWriting : public FilePrivsTest {
 protected:
  void SetUp() override { setMode(0755); }
  // The mode that a text sets; 0755 when it sets none.
  std::uint32_t modeAfter(const Value& privs) {
    setMode(0755);
    EXPECT_EQ(write({{"privs", privs}}), kSuccess);
    return mode();
  }
};

TEST_F(FilePrivilegesWriting, OwnerGroupModeAndAclAreSetTogether) {
  EXPECT_EQ(
      write({{"owner", "root"}, {"group", "root"}, {"privs", "711"}, {"acl", Array{validEntry()}}}),
      kSuccess);
  const FileAttributes now = tree.attributes(kFolder);
  EXPECT_EQ(now.ownerName, "root");
  EXPECT_EQ(now.groupName, "root");
  EXPECT_EQ(now.permissions, 0711U);
  ASSERT_NE(tree.acl(kFolder), nullptr);
  EXPECT_EQ(tree.acl(kFolder)->entries.front().qualifier, guidNumber(2));
}

TEST_F(FilePrivilegesWriting, ReadPrivilegesCanBeWrittenBackUnchanged) {
  storeAcl();
  const Dictionary before = read();
  EXPECT_EQ(write(before), kSuccess);
  EXPECT_EQ(read(), before);
  EXPECT_EQ(write(read("/srv/missing"), kFolder), kSuccess) << "error texts are ignored";
  EXPECT_EQ(*read().string("privs"), "755");
}

TEST_F(FilePrivilegesWriting, AnEmptyDictionaryChangesNothing) {
  storeAcl();
  const Dictionary before = read();
  EXPECT_EQ(write({}), kSuccess);
  EXPECT_EQ(read(), before);
}

TEST_F(FilePrivilegesWriting, EmptyOwnerAndGroupStayUnchanged) {
  EXPECT_EQ(write({{"owner", ""}, {"group", ""}, {"privs", "700"}}), kSuccess);
  EXPECT_EQ(tree.attributes(kFolder).ownerName, "anna");
  EXPECT_EQ(tree.attributes(kFolder).groupName, "staff");
  EXPECT_EQ(mode(), 0700U);
}

TEST_F(FilePrivilegesWriting, ThreeOctalDigitsAreTheMode) {
  EXPECT_EQ(modeAfter("700"), 0700U);
  EXPECT_EQ(modeAfter("000"), 0U);
  EXPECT_EQ(modeAfter("007"), 07U);
  EXPECT_EQ(modeAfter("777"), 0777U);
}

TEST_F(FilePrivilegesWriting, ModeParsingStopsAtFirstNonOctalCharacter) {
  EXPECT_EQ(modeAfter("7x9"), 07U);
  EXPECT_EQ(modeAfter("75x"), 075U);
  EXPECT_EQ(modeAfter("78 "), 07U);
  EXPECT_EQ(modeAfter("798"), 07U);
  EXPECT_EQ(modeAfter("7 5"), 07U);
  EXPECT_EQ(modeAfter("0x7"), 0U);
  EXPECT_EQ(modeAfter("7-5"), 07U);
  EXPECT_EQ(modeAfter("75\xC3\xA9"), 075U) << "three characters, four bytes";
  EXPECT_EQ(modeAfter(std::string("7\0005", 3)), 07U);
}

TEST_F(FilePrivilegesWriting, TextWithoutLeadingOctalDigitKeepsMode) {
  for (const char* text :
       {"x77", "877", "977", " 77", "+77", "-77", "-07", "\t77", "rwx", "   ", "\xC3\xA9xx"})
    EXPECT_EQ(modeAfter(text), 0755U) << text;
}

TEST_F(FilePrivilegesWriting, WhatHasNotThreeCharactersLeavesTheMode) {
  for (const char* text : {"", "7", "70", "0755", "1777", "00700", "7000", "7x", "\xC3\xA9"})
    EXPECT_EQ(modeAfter(text), 0755U) << text;
}

TEST_F(FilePrivilegesWriting, NonTextModeKeepsMode) {
  for (const Value& privs :
       std::vector<Value>{700, 0700, true, Array{"700"}, Dictionary{}, Data{{'7', '0', '0'}}})
    EXPECT_EQ(modeAfter(privs), 0755U);
}

TEST_F(FilePrivilegesWriting, FolderKeepsSetIdAndStickyBits) {
  setMode(07755);
  EXPECT_EQ(write({{"privs", "750"}}), kSuccess);
  EXPECT_EQ(mode(), 07750U);
}

TEST_F(FilePrivilegesWriting, WithoutAModeTheSetIdBitsStay) {
  setMode(02755);
  EXPECT_EQ(write({{"owner", "root"}, {"privs", "1777"}}), kSuccess);
  EXPECT_EQ(mode(), 02755U);
}

TEST_F(FilePrivilegesWriting, AnAbsentAclIsLeftAlone) {
  storeAcl();
  EXPECT_EQ(write({{"privs", "700"}}), kSuccess);
  ASSERT_NE(tree.acl(kFolder), nullptr);
  for (const Value& other : std::vector<Value>{"", 0, Dictionary{}, Data{}}) {
    EXPECT_EQ(write({{"acl", other}}), kSuccess);
    EXPECT_NE(tree.acl(kFolder), nullptr);
  }
}

TEST_F(FilePrivilegesWriting, AnEmptyAclIsCleared) {
  storeAcl();
  EXPECT_EQ(write({{"acl", Array{}}}), kSuccess);
  EXPECT_EQ(tree.acl(kFolder), nullptr);
}

TEST_F(FilePrivilegesWriting, OwnerGroupOrModeFailureStillWritesAcl) {
  EXPECT_EQ(write({{"owner", "nobody-here"}, {"privs", "700"}, {"acl", Array{validEntry()}}}),
            USER_NOT_FOUND_ERR);
  EXPECT_EQ(mode(), 0755U);
  EXPECT_NE(tree.acl(kFolder), nullptr);
  EXPECT_EQ(write({{"group", "nobody-here"}, {"acl", Array{}}}), GROUP_NOT_FOUND_ERR);
  EXPECT_EQ(tree.acl(kFolder), nullptr);
  EXPECT_EQ(failing("fileAttributes.apply",
                    [] {
                      return write({{"privs", "700"}, {"acl", Array{validEntry()}}});
                    }),
            CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_NE(tree.acl(kFolder), nullptr);
}

TEST_F(FilePrivilegesWriting, OwnerGroupModeFailureLogsPathAndReason) {
  const auto expectOne = [this](const std::string& path, const std::string& reason) {
    EXPECT_EQ(logger.lines(), (Lines{{kLogError, "paddock_sharing: The owner, group and mode of " +
                                                     path + " were not set: " + reason}}));
    logger.clear();
  };
  write({{"owner", "nobody-here"}, {"group", "nobody-here"}});
  expectOne(kFolder, "there is no user nobody-here");
  write({{"group", "nobody-here"}});
  expectOne(kFolder, "there is no group nobody-here");
  failing(
      "fileAttributes.apply",
      [] {
        return write({{"privs", "700"}});
      },
      1, EROFS);
  expectOne(kFolder, "Read-only file system");
  write({{"privs", "700"}}, "/srv/missing");
  expectOne("/srv/missing", "No such file or directory");
}

TEST_F(FilePrivilegesWriting, AclFailureMasksOwnerGroupOrModeFailure) {
  EXPECT_EQ(write({{"owner", "nobody-here"}, {"acl", Array{invalidEntry()}}}),
            CANNOT_SET_ACL_QUALIFIER_ERR);
}

TEST_F(FilePrivilegesWriting, AclFailureKeepsOwnerGroupAndModeChanges) {
  EXPECT_EQ(write({{"owner", "root"}, {"privs", "700"}, {"acl", Array{invalidEntry()}}}),
            CANNOT_SET_ACL_QUALIFIER_ERR);
  EXPECT_EQ(tree.attributes(kFolder).ownerName, "root");
  EXPECT_EQ(mode(), 0700U);
}

TEST_F(FilePrivilegesWriting, ResultOfAclCallIsPassedOn) {
  const Array entries = {Dictionary{{"allowPermission", "YES"}, {"isUser", 0}, {"uniqueID", 1000}}};
  EXPECT_EQ(failing("acl.acl_set_qualifier", [&] { return write({{"acl", entries}}); }), -1);
}

TEST_F(FilePrivilegesWriting, OwnerGroupAndModeComeBeforeTheAcl) {
  FaultPlan none;
  const ForwardingServices counted(doubles(), none);
  const ServicesGuard guard(counted.services());
  EXPECT_EQ(write({{"owner", "root"}, {"group", "root"}, {"acl", Array{validEntry()}}}), kSuccess);
  const std::vector<std::string>& calls = none.calls();
  EXPECT_EQ(
      (std::vector<std::string>(calls.begin(), calls.begin() + 3)),
      (std::vector<std::string>{"accounts.getpwnam", "accounts.getgrnam", "fileAttributes.apply"}));
  EXPECT_EQ(calls.at(calls.size() - 2), "acl.acl_set_file");
}

TEST_F(FilePrivilegesWriting, AMissingPathCannotBeChanged) {
  EXPECT_EQ(write({{"privs", "700"}}, "/srv/missing"), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_EQ(write({}, "/srv/missing"), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_EQ(write({{"acl", Array{}}}, "/srv/missing"), CANNOT_CHANGE_PRIVS_ERR);
  EXPECT_EQ(write({{"acl", Array{validEntry()}}}, "/srv/missing"), CANNOT_SET_ACL_FILE_ERR);
}

TEST_F(FilePrivilegesWriting, NonTextNamesKeepOwnerAndGroup) {
  EXPECT_EQ(write({{"owner", 0}, {"group", Array{"root"}}}), kSuccess);
  EXPECT_EQ(tree.attributes(kFolder).ownerName, "anna");
  EXPECT_EQ(tree.attributes(kFolder).groupName, "staff");
}

}  // namespace

}  // namespace paddock
