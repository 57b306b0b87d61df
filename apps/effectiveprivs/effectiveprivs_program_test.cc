// The program itself, in a tree of its own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>

#include "support/effectiveprivs_program.h"
#include "support/own_mounts.h"

namespace paddock::effectiveprivs {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class Program : public InstalledProgram {
 protected:
  // As an account of the host, whose primary group is the staff's.
  static std::string annaInPasswd() {
    return "anna:x:" + std::to_string(kAnna) + ":" + std::to_string(kStaff) + "::/:/bin/sh\n";
  }
};

TEST_F(Program, PrintsOneNumberAndNothingElse) {
  addUser("anna", kAnna);
  EXPECT_EQ(answer(makeFile("file", 0644), kAnna), std::to_string(2 + 128 + 512 + 2048) + "\n");
}

TEST_F(Program, RootHasEverythingWhateverIsThere) {
  const std::string file = makeFile("file", 0);
  EXPECT_EQ(answer(file, 0), "16382\n");
  setCompleteList(file, {deny(nt_acl::everyoneSid(), 16382)});
  EXPECT_EQ(answer(file, 0), "16382\n");
}

TEST_F(Program, ReadsEntriesAndTheModeBehindThem) {
  addUser("anna", kAnna);
  const std::string file = makeFile("file", 0644);
  setList(file, {deny(user(kAnna), 2), allow(user(kAnna), 4)});
  EXPECT_EQ(answer(file, kAnna), std::to_string(4 + 128 + 512 + 2048) + "\n");
  EXPECT_EQ(answer(file, kBert), std::to_string(2 + 128 + 512 + 2048) + "\n");
}

TEST_F(Program, ACompleteListLeavesNothingToTheMode) {
  addUser("anna", kAnna);
  const std::string file = makeFile("file", 0777, kAnna);
  setCompleteList(file, {allow(user(kAnna), 2)});
  EXPECT_EQ(answer(file, kAnna), "2\n");
}

TEST_F(Program, ADescriptorWithoutAListAllowsEverybodyEverything) {
  addUser("anna", kAnna);
  const std::string file = makeFile("file", 0);
  ASSERT_EQ(setAttribute(file, FileAclOptions{}.attribute,
                         nt_acl::encode({nt_acl::kControlWritten, user(0), group(0), {}}).value()),
            0);
  EXPECT_EQ(answer(file, kAnna), "16382\n");
}

TEST_F(Program, PrimaryOtherAndNestedGroupsCount) {
  addUser("anna", kAnna, kStaff);
  addGroup("staff", kStaff);
  addGroup("crew", kCrew, {"anna"});
  addGroup("all", kCrew + 1, {}, {kCrew});
  for (const std::uint32_t gid : {kStaff, kCrew, kCrew + 1}) {
    const std::string file = makeFile("file" + std::to_string(gid), 0);
    setList(file, {allow(group(gid), 2)});
    EXPECT_EQ(answer(file, kAnna), std::to_string(2 + 128 + 2048) + "\n");
    EXPECT_EQ(answer(file, kBert), std::to_string(128 + 2048) + "\n");
  }
}

TEST_F(Program, GuidEntryAppliesToMatchingRecord) {
  const std::string guid = "DEADBEEF-0000-4000-8000-000000000001";
  addRecord("anna", schema::kUsers,
            {{schema::kUniqueID, std::to_string(kAnna)}, {schema::kGeneratedUID, guid}});
  const std::string file = makeFile("file", 0);
  setList(file, {allow(nt_acl::guidSid(*parseGuid(guid)), 2)});
  EXPECT_EQ(answer(file, kAnna), std::to_string(2 + 128 + 2048) + "\n");
}

TEST_F(Program, WellKnownPrincipalsCount) {
  addUser("anna", kAnna);
  const std::string file = makeFile("file", 0, kAnna);
  setList(file, {allow(nt_acl::everyoneSid(), 2), allow(nt_acl::authenticatedUsersSid(), 4),
                 deny(nt_acl::ownerRightsSid(), 4096), allow(nt_acl::creatorOwnerSid(), 8192)});
  EXPECT_EQ(answer(file, kAnna), std::to_string(2 + 4 + 128 + 256 + 2048) + "\n");
  EXPECT_EQ(answer(file, kBert), std::to_string(2 + 128 + 2048) + "\n");
}

TEST_F(Program, WhatIsOnlyInheritedDoesNotCount) {
  addUser("anna", kAnna);
  const std::string folder = makeFolder("folder", 0);
  setList(folder, {allow(user(kAnna), 16382, nt_acl::kInheritOnly | nt_acl::kContainerInherit)});
  EXPECT_EQ(answer(folder, kAnna), std::to_string(128 + 2048) + "\n");
}

TEST_F(Program, AllowedStrangersAndForeignEntryTypesGrantNothing) {
  addUser("anna", kAnna);
  const std::string file = makeFile("file", 0);
  nt_acl::Ace audit{2, 0, 0x1F01FF, nt_acl::everyoneSid(), {}};
  audit.foreign = std::string(
      "\x02\x00\x14\x00\xff\x01\x1f\x00\x01\x01\x00\x00\x00\x00\x00\x01"
      "\x00\x00\x00\x00",
      20);
  setCompleteList(file, {audit, allow({5, {21, 1, 2, 3, 1000}}, 16382), allow(user(kAnna), 2)});
  EXPECT_EQ(answer(file, kAnna), "2\n");
}

TEST_F(Program, StrangersDenialCountsAndIsReported) {
  addUser("anna", kAnna);
  const std::string file = makeFile("file", 0);
  setCompleteList(file, {deny({5, {21, 1, 2, 3, 1104}}, 2), allow(user(kAnna), 2 | 4)});
  EXPECT_EQ(answer(file, kAnna), "4\n");
  for (const char* way : {"--answer", "--explain"}) {
    const EndedProgram ended = run({way, "-p", file, "-u", std::to_string(kAnna)});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.error, "");
  }
  EXPECT_THAT(run({"--explain", "-p", file, "-u", std::to_string(kAnna)}).output,
              HasSubstr("\n4\nanna"));
  const EndedProgram who = run({"--who", "-p", file});
  EXPECT_EQ(who.status, 4);
  EXPECT_THAT(who.output, HasSubstr("  anna              ?     yes "));
}

TEST_F(Program, UnknownGuidBelongsToStranger) {
  addUser("anna", kAnna);
  const std::string file = makeFile("file", 0644);
  const nt_acl::Sid sid = nt_acl::guidSid(*parseGuid("DEADBEEF-0000-4000-8000-000000000009"));
  setList(file, {deny(sid, 2)});
  EXPECT_EQ(answer(file, kAnna), std::to_string(128 + 512 + 2048) + "\n");
  EXPECT_EQ(run({"--answer", "-p", file, "-u", std::to_string(kAnna)}).status, 4);
  addRecord("bert", schema::kUsers,
            {{schema::kUniqueID, std::to_string(kBert)},
             {schema::kGeneratedUID, "DEADBEEF-0000-4000-8000-000000000009"}});
  EXPECT_EQ(answer(file, kAnna), std::to_string(2 + 128 + 512 + 2048) + "\n");
  EXPECT_EQ(run({"--answer", "-p", file, "-u", std::to_string(kAnna)}).status, 0);
}

// chown(1) leaves a list as it is: what its tail says of the former owner counts nowhere but with
// smbd, which goes by it.
TEST_F(Program, StaleTailCountsOverSmbAlone) {
  addUser("anna", kAnna);
  addUser("bert", kBert);
  std::filesystem::create_directories(root_ + "/usr/bin");
  writeWholeFile(root_ + "/usr/bin/testparm",
                 "#!/bin/sh\ncat <<'END'\n[plans]\n\tpath = " + folder_.path() +
                     "\n\tread only = no\n\tvfs objects = acl_xattr\nEND\n");
  ASSERT_EQ(::chmod((root_ + "/usr/bin/testparm").c_str(), 0755), 0);
  const std::string file = makeFile("file", 0600, kAnna);
  setList(file, {allow(user(kNobodys), 2)});
  const auto explained = [&](std::uint32_t uid) {
    return run({"--explain", "--json", "-p", file, "-u", std::to_string(uid)}).output;
  };
  EXPECT_THAT(explained(kAnna), HasSubstr(R"("smb":{"read":"yes",)"));
  const std::string number = answer(file, kAnna);
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  ASSERT_EQ(::chown(file.c_str(), kBert, status.st_gid), 0);
  EXPECT_EQ(answer(file, kBert), number) << "what the owner has";
  EXPECT_EQ(answer(file, kAnna), std::to_string(128 + 2048) + "\n");
  EXPECT_THAT(explained(kAnna), HasSubstr(R"("smb":{"read":"no",)"));
  EXPECT_THAT(explained(kBert), AllOf(HasSubstr(R"("local":{"read":"yes",)"),
                                      HasSubstr(R"("smb":{"read":"no","reason":"the list still )"
                                                R"(has owner anna, )")));
  EXPECT_THAT(run({"--who", "-p", file}).output,
              AllOf(HasSubstr("\nThe list still has owner anna, group "),
                    HasSubstr("SMB servers go by these, and anna may change it there.")));
}

// Samba's programs are replaced by their recorded output.
TEST_F(Program, AccountsOfSambasAreWhoSheIs) {
  addUser("anna", kAnna);
  const auto script = [this](const std::string& name, const std::string& text) {
    std::filesystem::create_directories(root_ + "/usr/bin");
    writeWholeFile(root_ + "/usr/bin/" + name, "#!/bin/sh\ncat <<'END'\n" + text + "END\n");
    ASSERT_EQ(::chmod((root_ + "/usr/bin/" + name).c_str(), 0755), 0);
  };
  script("testparm", "[global]\n\tprivate dir = " + root_ + "\n\tstate directory = " + root_ +
                         "\n\tpassdb backend = tdbsam\n");
  script("pdbedit",
         "Unix username:        nobody\nUser SID:             S-1-5-21-1-2-3-1001\n"
         "Primary Group SID:    S-1-5-21-1-2-3-513\n");
  writeWholeFile(root_ + "/secrets.tdb", "");
  const std::string file = makeFile("file", 0);
  setCompleteList(file, {deny({5, {21, 1, 2, 3, 1001}}, 2), deny({5, {32, 545}}, 4),
                         allow({5, {21, 1, 2, 3, 513}}, 2 | 4 | 8)});
  EXPECT_EQ(answer(file, 65534), "12\n");
  const EndedProgram ended = run({"--explain", "-p", file, "-u", "65534"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.output, HasSubstr("entry 1: deny user:nobody\n"));
  EXPECT_THAT(ended.output, HasSubstr("entry 3: allow Samba's accounts (S-1-5-21-1-2-3-513)\n"));
  EXPECT_EQ(answer(file, kAnna), "0\n");
  // A group that Samba has, and whose members only Samba knows.
  writeWholeFile(root_ + "/group_mapping.tdb", "");
  script("net", "Users (S-1-5-32-545) -> users\n");
  EXPECT_EQ(answer(file, 65534), "8\n");
  EXPECT_EQ(run({"--answer", "-p", file, "-u", "65534"}).status, 4);
}

TEST_F(Program, QueryCreatesNoSambaDatabase) {
  std::filesystem::create_directories(root_ + "/usr/bin");
  writeWholeFile(root_ + "/usr/bin/testparm", "#!/bin/sh\necho 'private dir = " + root_ + "'\n");
  writeWholeFile(root_ + "/usr/bin/pdbedit", "#!/bin/sh\ntouch " + root_ + "/ran\n");
  for (const char* name : {"testparm", "pdbedit"})
    ASSERT_EQ(::chmod((root_ + "/usr/bin/" + name).c_str(), 0755), 0);
  const std::string file = makeFile("file", 0);
  setCompleteList(file, {allow({5, {21, 1, 2, 3, 1001}}, 2)});
  EXPECT_EQ(answer(file, kBert), "0\n");
  EXPECT_FALSE(std::filesystem::exists(root_ + "/ran"));
}

TEST_F(Program, ALinkIsFollowed) {
  addUser("anna", kAnna);
  makeFile("file", 0600, kAnna);
  ASSERT_EQ(::symlink("file", folder_.path("link").c_str()), 0);
  EXPECT_EQ(answer(folder_.path("link"), kAnna), answer(folder_.path("file"), kAnna));
}

TEST_F(Program, FileDeletionIsJudgedInContainingFolder) {
  addUser("anna", kAnna);
  const std::string inside = makeFolder("open", 0777) + "/file";
  makeFile("open/file", 0);
  EXPECT_EQ(answer(inside, kAnna), std::to_string(16 + 128 + 2048) + "\n");
  makeFolder("closed", 0755);
  ASSERT_EQ(::symlink("../open/file", folder_.path("closed/link").c_str()), 0);
  EXPECT_EQ(answer(folder_.path("closed/link"), kAnna), std::to_string(16 + 128 + 2048) + "\n");
  setList(folder_.path("open"), {deny(user(kAnna), 4 | 64)});
  EXPECT_EQ(answer(inside, kAnna), std::to_string(128 + 2048) + "\n");
}

TEST_F(Program, FolderDeletionIsJudgedInParentFolder) {
  addUser("anna", kAnna);
  makeFolder("sticky", 01777);
  EXPECT_EQ(answer(makeFolder("sticky/roots", 0), kAnna), std::to_string(128 + 2048) + "\n");
  EXPECT_EQ(answer(makeFolder("sticky/hers", 0, kAnna), kAnna),
            std::to_string(16 + 128 + 256 + 2048 + 4096) + "\n");
}

TEST_F(Program, TheHighestFolderIsInNone) {
  addUser("anna", kAnna);
  EXPECT_EQ(std::stoi(answer("/", kAnna)) & 16, 0);
}

TEST_F(Program, FifosSocketsAndDevicesAreNotOpened) {
  addUser("anna", kAnna);
  const std::string fifo = folder_.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0), 0);
  ASSERT_EQ(::chmod(fifo.c_str(), 0644), 0);
  EXPECT_EQ(answer(fifo, kAnna), std::to_string(2 + 128 + 512 + 2048) + "\n");
}

TEST_F(Program, HostDeterminesOwningGroupMembership) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  addUser("anna", kAnna);
  addGroup("staff", kStaff, {"anna"});
  const std::string file = makeFile("file", 0604, 0, kStaff);
  EXPECT_EQ(answer(file, kAnna), std::to_string(2 + 128 + 512 + 2048) + "\n");
  writeWholeFile(folder_.path("passwd"), annaInPasswd());
  runInOwnMounts([&] {
    bindMount(folder_.path("passwd"), "/etc/passwd");
    EXPECT_EQ(answer(file, kAnna), std::to_string(128 + 2048) + "\n");
  });
}

TEST_F(Program, PosixAclMaskIsDistinctFromGroupBits) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  writeWholeFile(folder_.path("passwd"), annaInPasswd());
  const std::string file = makeFile("file", 0640, 0, kStaff);
  if (const std::string why = whyNoPosixAcls(folder_.path()); !why.empty()) GTEST_SKIP() << why;
  posix_acl::Acl acl;
  acl.classes = {6, 4, 0};
  acl.users = {{kBert, 7}};
  acl.computeMask();
  ASSERT_EQ(setAttribute(file, posix_acl::kAccessAttribute, posix_acl::encode(acl)), 0);
  runInOwnMounts([&] {
    bindMount(folder_.path("passwd"), "/etc/passwd");
    EXPECT_EQ(answer(file, kAnna), std::to_string(2 + 128 + 512 + 2048) + "\n");
  });
}

TEST_F(Program, UidWithoutAccountIsJudgedLikeOthers) {
  const std::string file = makeFile("file", 0704, kBert);
  setList(file, {allow(user(kBert), 32), deny(user(kAnna), 2), allow(nt_acl::everyoneSid(), 8)});
  EXPECT_EQ(answer(file, kBert),
            std::to_string(2 + 4 + 8 + 32 + 128 + 256 + 512 + 1024 + 2048 + 4096) + "\n");
  EXPECT_EQ(answer(file, kAnna), std::to_string(8 + 128 + 512 + 2048) + "\n");
  const std::string others = std::to_string(2 + 8 + 128 + 512 + 2048) + "\n";
  EXPECT_EQ(answer(file, 2147483648U), others);
  EXPECT_EQ(answer(file, 4294967295U), others);
}

TEST_F(Program, ListsAreWhereTheConfigurationSays) {
  addUser("anna", kAnna);
  std::filesystem::create_directories(root_ + "/etc/paddock");
  writeWholeFile(root_ + "/etc/paddock/paddockd.toml", "[acl]\nattribute = \"user.paddock\"\n");
  const std::string file = makeFile("file", 0644);
  setCompleteList(file, {});
  EXPECT_EQ(answer(file, kAnna), std::to_string(2 + 128 + 512 + 2048) + "\n");
}

TEST_F(Program, MissingPathFails) {
  for (const char* name : {"missing", "file/below", "dangling"}) {
    makeFile("file", 0644);
    ASSERT_TRUE(::symlink("missing", folder_.path("dangling").c_str()) == 0 || errno == EEXIST);
    EXPECT_THAT(failureOf(ask(folder_.path(name), kAnna)),
                StartsWith("effectiveprivs: cannot open " + folder_.path(name) + ": "));
  }
}

TEST_F(Program, SymlinkLoopsAndOverlongNamesFail) {
  ASSERT_EQ(::symlink("circle", folder_.path("circle").c_str()), 0);
  EXPECT_THAT(failureOf(ask(folder_.path("circle"), kAnna)), HasSubstr("symbolic links"));
  EXPECT_THAT(failureOf(ask(folder_.path(std::string(300, 'x')), kAnna)),
              HasSubstr("name too long"));
}

TEST_F(Program, PathBelowRootOnlyFolderIsJudged) {
  addUser("anna", kAnna);
  makeFolder("private", 0700);
  EXPECT_EQ(answer(makeFile("private/file", 0644), kAnna),
            std::to_string(2 + 128 + 512 + 2048) + "\n");
}

TEST_F(Program, DamagedListFailsInsteadOfCountingAsAbsent) {
  addUser("anna", kAnna);
  const std::string file = makeFile("file", 0777);
  ASSERT_EQ(setAttribute(file, FileAclOptions{}.attribute, "\x01"), 0);
  EXPECT_EQ(failureOf(ask(file, kAnna)),
            "effectiveprivs: the ACL of " + file +
                " is damaged: its attribute security.NTACL does not decode\n");
}

TEST_F(Program, DamagedParentListFailsWhereRelevant) {
  addUser("anna", kAnna);
  const std::string folder = makeFolder("folder", 0777);
  const std::string file = makeFile("folder/file", 0);
  ASSERT_EQ(setAttribute(folder, FileAclOptions{}.attribute, "\x01"), 0);
  EXPECT_THAT(failureOf(ask(file, kAnna)), HasSubstr("is damaged"));
  setList(file, {deny(user(kAnna), 16)});
  EXPECT_EQ(answer(file, kAnna), std::to_string(128 + 2048) + "\n");
}

// Nothing listens there.
constexpr const char* kServerThatIsOff =
    "[[ldap]]\nname = \"off\"\nuri = \"ldap://127.0.0.1:1\"\nbase = \"dc=example\"\ntls = "
    "\"none\"\n";

TEST_F(Program, UnreachableDirectoryServerLeavesCertainRights) {
  addUser("anna", kAnna);
  std::filesystem::create_directories(root_ + "/etc/paddock");
  writeWholeFile(root_ + "/etc/paddock/paddockd.toml", kServerThatIsOff);
  const std::string file = makeFile("file", 0);
  setList(file, {allow(user(kAnna), 2), deny(group(kCrew), 4), allow(user(kAnna), 4)});
  EXPECT_EQ(answer(file, kAnna), std::to_string(2 + 128 + 2048) + "\n") << "what is sure";
  for (const char* question : {"--answer", "--explain"}) {
    const EndedProgram ended = run({question, "-p", file, "-u", std::to_string(kAnna)});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.error, "");
    EXPECT_THAT(ended.output,
                HasSubstr("Not known: what /LDAP/off alone knows of people and groups, because it "
                          "cannot be asked: "));
  }
  const std::string explained = run({"--explain", "-p", file, "-u", std::to_string(kAnna)}).output;
  EXPECT_THAT(explained, HasSubstr("  yes  read"));
  EXPECT_THAT(explained, HasSubstr("entry 2 denies group:" + std::to_string(kCrew) +
                                   ", and /LDAP/off, which may count the user as one, cannot be "
                                   "asked; else entry 3: allow user:anna\n"));
  EXPECT_THAT(run({"--json", "--explain", "-p", file, "-u", std::to_string(kAnna)}).output,
              HasSubstr(R"("nodesLeftOut":[{"error":")"));
  EXPECT_EQ(answer(file, 0), "16382\n");
  EXPECT_EQ(run({"--answer", "-p", file, "-u", "0"}).status, 0) << "root needs nobody's word";
}

TEST_F(Program, UnreachableNodeKeepsUnknownUidUndecided) {
  std::filesystem::create_directories(root_ + "/etc/paddock");
  writeWholeFile(root_ + "/etc/paddock/paddockd.toml", kServerThatIsOff);
  const std::string file = makeFile("file", 0);
  setList(file, {allow(nt_acl::authenticatedUsersSid(), 2)});
  const EndedProgram ended = run({"--explain", "-p", file, "-u", std::to_string(kAnna)});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.output, AllOf(HasSubstr(", whom no node that answers knows, on "),
                                  HasSubstr("  ?    read"), Not(HasSubstr("which nobody has"))));
}

TEST_F(Program, UnusableConfigurationFails) {
  std::filesystem::create_directories(root_ + "/etc/paddock");
  writeWholeFile(root_ + "/etc/paddock/paddockd.toml", "[acl]\nattribut = \"user.x\"\n");
  EXPECT_THAT(failureOf(ask("/", kAnna)), HasSubstr("/etc/paddock/paddockd.toml:2: "));
}

TEST_F(Program, ExplainsBehindTheNumber) {
  addUser("anna", kAnna);
  addGroup("crew", kCrew, {"anna"});
  const std::string folder = makeFolder("folder", 0750);
  setList(folder, {deny(user(kAnna), 4), allow(group(kCrew), 2 | 4)});
  const EndedProgram ended = run({"-p", folder, "-u", std::to_string(kAnna), "--explain"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.error, "");
  EXPECT_THAT(ended.output, HasSubstr("\n2178\nanna (uid " + std::to_string(kAnna) + ") on " +
                                      folder + ": owner root, group "));
  EXPECT_THAT(ended.output, HasSubstr("  yes  list              entry 2: allow group:crew\n"
                                      "  no   add-file          entry 1: deny user:anna\n"));
}

// These lists have no kernel ACL beside them.
TEST_F(Program, SaysWhereTheKernelDisagreesWithTheList) {
  addUser("anna", kAnna);
  const std::string file = makeFile("file", 0);
  setList(file, {allow(user(kAnna), 2)});
  EXPECT_THAT(run({"-p", file, "-u", std::to_string(kAnna), "--explain"}).output,
              HasSubstr("by the kernel's own rules:\n  no  read-data  others have ---\n"));
}

TEST_F(Program, NamesFolderWhereKernelStopsUser) {
  addUser("anna", kAnna);
  makeFolder("private", 0700);
  makeFolder("private/open", 0755);
  const std::string file = makeFile("private/open/file", 0644);
  EXPECT_THAT(
      run({"-p", file, "-u", std::to_string(kAnna), "--explain"}).output,
      HasSubstr("  it does not let the user through the folder " + folder_.path("private") + "\n"));
}

TEST_F(Program, BeginsWithTheFolderThatStopsTheUser) {
  addUser("anna", kAnna);
  makeFolder("private", 0700);
  makeFolder("private/closed", 0700);
  const std::string file = makeFile("private/closed/file", 0666);
  for (const char* way : {"--answer", "--explain"}) {
    const EndedProgram ended = run({way, "-p", file, "-u", std::to_string(kAnna)});
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(ended.output, StartsWith("No: stopped at " + folder_.path("private") +
                                         ", mode 700, owner root\n"));
  }
  EXPECT_THAT(run({"--who", "-p", file}).output,
              StartsWith("No: stopped at " + folder_.path("private") + ", mode 700, owner root\n"));
}

TEST_F(Program, SaysWhatEachNfsClientMay) {
  addUser("anna", kAnna);
  const std::string folder = makeFolder("shared", 0755);
  const std::string file = makeFile("shared/file", 0646);
  std::filesystem::create_directories(root_ + "/var/lib/nfs");
  writeWholeFile(root_ + "/var/lib/nfs/etab",
                 folder +
                     "\t10.0.0.0/8(ro,sync,root_squash,no_all_squash,sec=sys,ro,root_squash)\n" +
                     folder + "\t*.example.com(rw,root_squash,all_squash,anonuid=99,anongid=99)\n" +
                     folder + "x\t*(rw)\n");
  const std::string text = run({"--answer", "-p", file, "-u", std::to_string(kAnna)}).output;
  EXPECT_THAT(text, HasSubstr("  - 10.0.0.0/8     yes  "));
  EXPECT_THAT(text, HasSubstr(folder + "(ro,root_squash): exported read-only to 10.0.0.0/8\n"));
  EXPECT_THAT(text, HasSubstr(folder + "(rw,all_squash,anonuid=99)\n"));
  EXPECT_THAT(text, HasSubstr("  - any other      no "));
  const std::string root =
      run({"--answer", "-p", makeFile("shared/roots", 0600), "-u", "0"}).output;
  EXPECT_THAT(root, HasSubstr("(ro,root_squash): the kernel gives others ---\n"));
}

TEST_F(Program, AReadOnlyMountIsSaid) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  addUser("anna", kAnna);
  const std::string folder = makeFolder("mounted", 0777);
  runInOwnMounts([&] {
    ASSERT_EQ(::mount("none", folder.c_str(), "tmpfs", MS_RDONLY, "mode=777"), 0);
    EXPECT_THAT(run({"--answer", "-p", folder, "-u", std::to_string(kAnna)}).output,
                StartsWith("Read only: anna may read, and not write: the file system is mounted "
                           "read-only"));
  });
}

TEST_F(Program, AFullDiskIsSaid) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  addUser("anna", kAnna);
  const std::string folder = makeFolder("mounted", 0777);
  runInOwnMounts([&] {
    ASSERT_EQ(::mount("none", folder.c_str(), "tmpfs", 0, "mode=777,size=4096"), 0);
    writeWholeFile(folder + "/file", std::string(4096, 'x'));
    EXPECT_THAT(run({"--answer", "-p", folder, "-u", std::to_string(kAnna)}).output,
                StartsWith("Read only: anna may read, and not write: the disk is full"));
  });
}

TEST_F(Program, ExplainsInJson) {
  addUser("anna", kAnna);
  const EndedProgram ended =
      run({"-p", makeFile("file", 0644), "-u", std::to_string(kAnna), "--explain", "--json"});
  EXPECT_THAT(ended.output, StartsWith("{\"answer\":{\"read\":\"yes\","));
  EXPECT_THAT(ended.output, HasSubstr("\"bitmap\":2690,"));
  EXPECT_THAT(ended.output, EndsWith("}\n"));
}

TEST_F(Program, RootAccessIsExplainedDespiteDamagedList) {
  const std::string file = makeFile("file", 0);
  ASSERT_EQ(setAttribute(file, FileAclOptions{}.attribute, "\x01"), 0);
  EXPECT_THAT(run({"-p", file, "-u", "0", "--explain"}).output,
              HasSubstr("root may do everything"));
}

TEST_F(Program, TellsWhoMay) {
  addUser("anna", kAnna);
  addGroup("crew", kCrew, {"anna"});
  const std::string file = makeFile("file", 0600);
  setList(file, {allow(group(kCrew), 2)});
  const EndedProgram ended = run({"--who", "-p", file});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.error, "");
  EXPECT_THAT(ended.output, HasSubstr("\n" + file + ": owner root, group "));
  EXPECT_THAT(ended.output, HasSubstr("\n  anna              yes   no     no           no   no     "
                                      "     no   read: entry 1: allow group:crew\n"));
  EXPECT_THAT(run({"--who", "--json", "-p", file}).output, HasSubstr("\"user\":\"anna\""));
}

TEST_F(Program, WhoMayReportsCertainRightsDespiteUnreachableServer) {
  addUser("anna", kAnna);
  addUser("bert", kBert);
  addGroup("crew", kCrew, {"anna"});
  std::filesystem::create_directories(root_ + "/etc/paddock");
  writeWholeFile(root_ + "/etc/paddock/paddockd.toml", kServerThatIsOff);
  const std::string file = makeFile("file", 0);
  setList(file, {allow(user(kBert), 4), allow(group(kCrew), 2)});
  const EndedProgram ended = run({"--who", "-p", file});
  EXPECT_EQ(ended.status, 4);
  EXPECT_EQ(ended.error, "");
  EXPECT_THAT(ended.output, ContainsRegex("\n  anna  +yes   no "));
  EXPECT_THAT(ended.output, ContainsRegex("\n  bert  +[?]     yes "));
  EXPECT_THAT(ended.output, ContainsRegex("\n  .everybody else.  +[?]     no "));
  EXPECT_THAT(ended.output, ContainsRegex("\n  .a uid without an account.  +no    no "));
  EXPECT_THAT(ended.output,
              HasSubstr("Not known: what /LDAP/off alone knows of people and groups"));
  EXPECT_THAT(run({"--json", "--who", "-p", file}).output, HasSubstr("\"nodesLeftOut\":"));
}

TEST_F(Program, WhoMayFailsOnMissingOrDamagedInput) {
  EXPECT_THAT(failureOf(run({"--who", "-p", folder_.path("missing")})), HasSubstr("cannot open"));
  const std::string file = makeFile("file", 0);
  ASSERT_EQ(setAttribute(file, FileAclOptions{}.attribute, "\x01"), 0);
  EXPECT_THAT(failureOf(run({"--who", "-p", file})), HasSubstr("is damaged"));
}

TEST_F(Program, InvalidCommandLinePrintsUsage) {
  EXPECT_EQ(failureOf(run({"-p", "/", "-u", "anna"}), 2),
            "effectiveprivs: \"anna\" is no uid\n"
            "usage: effectiveprivs [--answer | --explain [--json]] -p PATH -u UID\n"
            "       effectiveprivs --who [--json] -p PATH\n");
}

TEST_F(Program, OutputThatCannotBeWrittenIsAnError) {
  const EndedProgram ended =
      runProgram({"/bin/sh", "-c", "exec \"$0\" -p / -u 0 > /dev/full", program_});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.error, "effectiveprivs: standard output cannot be written\n");
}

TEST_F(Program, UserInTenThousandGroupsSucceeds) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  const std::string file = makeFile("file", 0);
  constexpr std::uint32_t kGroups = 10'000;
  setList(file, {allow(group(kCrew + kGroups - 1), 2)});
  writeWholeFile(folder_.path("passwd"), annaInPasswd());
  std::string lines;
  for (std::uint32_t number = 0; number < kGroups; ++number)
    lines += "g" + std::to_string(number) + ":x:" + std::to_string(kCrew + number) + ":anna\n";
  writeWholeFile(folder_.path("group"), lines);
  runInOwnMounts([&] {
    bindMount(folder_.path("passwd"), "/etc/passwd");
    bindMount(folder_.path("group"), "/etc/group");
    EXPECT_EQ(answer(file, kAnna), std::to_string(2 + 128 + 2048) + "\n");
  });
}

}  // namespace
}  // namespace paddock::effectiveprivs
