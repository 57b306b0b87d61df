// The program itself, on trees of its own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/copyprivs_tree.h"

namespace paddock::copyprivs {
namespace {

using nt_acl::kContainerInherit;
using nt_acl::kInherited;
using nt_acl::kNoPropagateInherit;
using nt_acl::kObjectInherit;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint8_t kBoth = kObjectInherit | kContainerInherit;
constexpr std::uint32_t kAnna = 21001;
constexpr std::uint32_t kBert = 21002;
constexpr std::uint32_t kExecuting = 0x20;
constexpr std::uint32_t kReading = 0x1;

class Program : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
    const std::string why = whyNoLists(data_.path());
    if (!why.empty()) GTEST_SKIP() << why;
  }

  void expectDone(const std::string& mask, std::int64_t changed) {
    const EndedProgram ended = tree_.run(mask);
    EXPECT_EQ(ended.status, 0) << ended.error;
    EXPECT_EQ(ended.error, "");
    const Dictionary status = tree_.status();
    EXPECT_EQ(*status.string("status"), "completed");
    EXPECT_EQ(status.integer("itemsChanged"), changed);
    EXPECT_EQ(status.integer("errorCount"), 0);
  }
  std::vector<nt_acl::Ace> entries(const std::string& name) {
    return entriesOf(tree_.path(name)).entries;
  }
  std::string firstError() {
    const Dictionary status = tree_.status();
    const Array& errors = *status.array("errors");
    return errors.empty() ? "" : *errors.front().dictionary()->string("error");
  }

  const TestFolder data_;
  const TestTree tree_{data_.path()};
};

TEST_F(Program, GivesOwnerGroupAndModeToEverythingInside) {
  tree_.own("", 0770, kAnna, kBert);
  tree_.makeFolder("sub", 0700);
  tree_.makeFile("sub/file", 0644);
  tree_.makeFile("script", 0755);
  expectDone("31", 3);
  for (const char* name : {"sub", "sub/file", "script"}) {
    EXPECT_EQ(lstatOf(tree_.path(name)).st_uid, kAnna) << name;
    EXPECT_EQ(lstatOf(tree_.path(name)).st_gid, kBert) << name;
  }
  EXPECT_EQ(permissionsOf(tree_.path("sub")), 0770U);
  EXPECT_EQ(permissionsOf(tree_.path("sub/file")), 0660U);
  EXPECT_EQ(permissionsOf(tree_.path("script")), 0771U);
}

TEST_F(Program, GroupChangeClearsSetGroupIdBit) {
  tree_.own("", 0755, kAnna, kBert);
  tree_.makeFile("program", 0701);
  tree_.setList("program", {aceOf(kAnna, kInherited, kExecuting)});
  posix_acl::Acl acl;
  acl.classes = posix_acl::classesOf(0701);
  acl.users = {{kAnna, posix_acl::kExecute}};
  acl.mask = posix_acl::kExecute;
  tree_.setValue("program", posix_acl::encode(acl), posix_acl::kAccessAttribute);
  ASSERT_EQ(::chmod(tree_.path("program").c_str(), 02711), 0);
  expectDone("34", 1);
  EXPECT_EQ(lstatOf(tree_.path("program")).st_gid, kBert);
  EXPECT_EQ(permissionsOf(tree_.path("program")), 0701U);
}

TEST_F(Program, TheStartingFolderStaysAsItIs) {
  tree_.own("", 02770, kAnna, kBert);
  tree_.setList("", {aceOf(kAnna, kBoth, kReading)});
  tree_.makeFile("file");
  const struct stat before = lstatOf(tree_.path());
  expectDone("63", 1);
  const struct stat after = lstatOf(tree_.path());
  EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
  EXPECT_EQ(permissionsOf(tree_.path()), 02770U);
}

TEST_F(Program, GivesInheritableEntriesToEverythingInside) {
  tree_.setList("", {aceOf(kAnna, kBoth, kReading)});
  tree_.makeFolder("sub");
  tree_.makeFile("sub/file");
  expectDone("32", 2);
  EXPECT_THAT(entries("sub"), ElementsAre(aceOf(kAnna, kBoth | kInherited, kReading)));
  EXPECT_THAT(entries("sub/file"), ElementsAre(aceOf(kAnna, kInherited, kReading)));
}

TEST_F(Program, OwnEntriesPrecedeInheritedOnesAndPropagate) {
  tree_.setList("", {aceOf(kAnna, kBoth, kReading)});
  tree_.makeFolder("sub");
  tree_.setList("sub", {aceOf(kAnna, kBoth | kInherited, 0x2), aceOf(kBert, kBoth, kReading)});
  tree_.makeFile("sub/file");
  expectDone("32", 2);
  EXPECT_THAT(entries("sub"), ElementsAre(aceOf(kBert, kBoth, kReading),
                                          aceOf(kAnna, kBoth | kInherited, kReading)));
  EXPECT_THAT(entries("sub/file"),
              ElementsAre(aceOf(kBert, kInherited, kReading), aceOf(kAnna, kInherited, kReading)));
}

TEST_F(Program, AnEntryOfOneLevelGoesNoFurther) {
  tree_.setList("", {aceOf(kAnna, kBoth | kNoPropagateInherit, kReading)});
  tree_.makeFolder("sub");
  tree_.makeFile("file");
  tree_.makeFile("sub/file");
  expectDone("32", 2);
  EXPECT_THAT(entries("sub"),
              ElementsAre(aceOf(kAnna, kNoPropagateInherit | kInherited, kReading)));
  EXPECT_THAT(entries("file"),
              ElementsAre(aceOf(kAnna, kNoPropagateInherit | kInherited, kReading)));
  EXPECT_THAT(entries("sub/file"), IsEmpty());
}

TEST_F(Program, SpecialFileInheritsOneLevelFromItsFolder) {
  tree_.setList("", {aceOf(kAnna, kBoth | kNoPropagateInherit, kReading)});
  tree_.makeFolder("sub");
  tree_.setList("sub", {aceOf(kBert, kBoth | kNoPropagateInherit, kReading, nt_acl::kDenied)});
  ASSERT_EQ(::mkfifo(tree_.path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo(tree_.path("sub/fifo").c_str(), 0600), 0);
  expectDone("32", 3);
  EXPECT_THAT(entries("fifo"),
              ElementsAre(aceOf(kAnna, kNoPropagateInherit | kInherited, kReading)));
  EXPECT_THAT(entries("sub/fifo"), ElementsAre(aceOf(kBert, kNoPropagateInherit | kInherited,
                                                     kReading, nt_acl::kDenied)));
}

TEST_F(Program, InheritedEntryOfStartingFolderPropagates) {
  tree_.setList("", {aceOf(kAnna, kBoth | kInherited, kReading)});
  tree_.makeFile("file");
  expectDone("32", 1);
  EXPECT_THAT(entries("file"), ElementsAre(aceOf(kAnna, kInherited, kReading)));
}

TEST_F(Program, ACompleteListStaysComplete) {
  tree_.setList("", {aceOf(kAnna, kBoth, kReading)});
  tree_.makeFile("file", 0644);
  tree_.setValue("file", completeList({aceOf(kBert, 0, kReading)}));
  expectDone("63", 1);
  const nt_acl::SplitList list = entriesOf(tree_.path("file"));
  EXPECT_TRUE(list.complete);
  EXPECT_THAT(list.entries,
              ElementsAre(aceOf(kBert, 0, kReading), aceOf(kAnna, kInherited, kReading)));
}

TEST_F(Program, ListFollowsOwnerAndModeWithoutAclBit) {
  tree_.own("", 0770, kAnna, kBert);
  tree_.makeFile("file", 0644);
  tree_.setList("file", {aceOf(kBert, 0, kReading)});
  expectDone("31", 1);
  EXPECT_EQ(attributeOf(tree_.path("file"), kListAttribute),
            listFor(tree_.path("file"), {aceOf(kBert, 0, kReading)}));
}

TEST_F(Program, UnchangedObjectIsNotRewritten) {
  tree_.own("", 0770, kAnna, kBert);
  tree_.setList("", {aceOf(kAnna, kBoth, kReading)});
  tree_.makeFolder("sub");
  tree_.makeFile("sub/file");
  std::filesystem::create_symlink("nowhere", tree_.path("link"));
  expectDone("63", 3);
  const struct stat before = lstatOf(tree_.path("sub/file"));
  expectDone("63", 0);
  EXPECT_EQ(lstatOf(tree_.path("sub/file")).st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_F(Program, ALinkItselfGetsOwnerAndGroup) {
  tree_.own("", 0700, kAnna, kBert);
  const std::string target = data_.path("outside");
  writeWholeFile(target, "");
  std::filesystem::create_symlink(target, tree_.path("link"));
  expectDone("63", 1);
  EXPECT_EQ(lstatOf(tree_.path("link")).st_uid, kAnna);
  EXPECT_EQ(lstatOf(tree_.path("link")).st_gid, kBert);
  EXPECT_EQ(lstatOf(target).st_uid, 0U);
}

TEST_F(Program, DryRunReportsChangesWithoutMakingThem) {
  tree_.own("", 0770, kAnna, kBert);
  tree_.setList("", {aceOf(kAnna, kBoth, kReading)});
  tree_.makeFile("file", 0644, kAnna);
  const EndedProgram ended = tree_.run("63", {"-n"});
  EXPECT_EQ(ended.status, 0) << ended.error;
  EXPECT_EQ(lstatOf(tree_.path("file")).st_gid, 0U);
  EXPECT_EQ(attributeOf(tree_.path("file"), kListAttribute), std::nullopt);
  const Dictionary status = tree_.status();
  EXPECT_EQ(status.boolean("dryRun"), true);
  EXPECT_EQ(status.integer("itemsChanged"), 1);
  const Array& examples = *status.array("examples");
  ASSERT_EQ(examples.size(), 1U);
  EXPECT_EQ(*examples.front().dictionary()->string("path"), tree_.path("file"));
  EXPECT_EQ(*examples.front().dictionary()->array("changes"), (Array{"group", "mode", "acl"}));
}

TEST_F(Program, EmptyMaskVisitsAndCountsWithoutChanges) {
  tree_.own("", 0770, kAnna, kBert);
  tree_.setList("", {aceOf(kAnna, kBoth, kReading)});
  tree_.makeFolder("sub");
  tree_.makeFile("sub/file", 0640);
  tree_.setList("sub/file", {aceOf(kBert, 0, kReading)});
  // A tail that is of another mode.
  ASSERT_EQ(::chmod(tree_.path("sub/file").c_str(), 0600), 0);
  std::filesystem::create_symlink("nowhere", tree_.path("link"));
  tree_.setValue("sub", "rubbish");
  const auto list = attributeOf(tree_.path("sub/file"), kListAttribute);
  const struct stat before = lstatOf(tree_.path("sub/file"));
  expectDone("0", 0);
  EXPECT_EQ(tree_.status().integer("itemsDone"), 3);
  EXPECT_EQ(tree_.status().integer("itemsTotal"), 3);
  EXPECT_EQ(attributeOf(tree_.path("sub/file"), kListAttribute), list);
  EXPECT_EQ(lstatOf(tree_.path("sub/file")).st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_F(Program, AnUnknownMaskChangesNothing) {
  tree_.own("", 0755, kAnna, kBert);
  tree_.makeFile("file");
  const EndedProgram ended = tree_.run("65");
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.error, HasSubstr("unknown bits"));
  EXPECT_THAT(*tree_.status().string("error"), HasSubstr("unknown bits"));
  EXPECT_EQ(*tree_.status().string("status"), "completed");
  EXPECT_EQ(lstatOf(tree_.path("file")).st_uid, 0U);
}

TEST_F(Program, InvalidFolderReturnsArgumentError) {
  tree_.makeFile("file");
  std::filesystem::create_directory_symlink(tree_.path(), data_.path("link"));
  for (const std::string& folder :
       {tree_.path("file"), data_.path("link"), data_.path("link/"), data_.path("missing")}) {
    const EndedProgram ended =
        runProgram({tree_.program(), "-p", folder, "-f", "63", "-s", tree_.statusFile()});
    EXPECT_EQ(ended.status, 2) << folder;
    EXPECT_THAT(*tree_.status().string("error"), HasSubstr(folder));
  }
}

TEST_F(Program, AnInvalidAclIsLeftAloneAndCounted) {
  tree_.own("", 0770, kAnna, kBert);
  tree_.makeFile("file", 0644);
  tree_.setValue("file", "rubbish");
  EXPECT_EQ(tree_.run("63").status, 1);
  EXPECT_EQ(attributeOf(tree_.path("file"), kListAttribute), "rubbish");
  EXPECT_EQ(lstatOf(tree_.path("file")).st_uid, kAnna);
  EXPECT_EQ(permissionsOf(tree_.path("file")), 0660U);
  EXPECT_EQ(tree_.status().integer("errorCount"), 1);
  EXPECT_EQ(firstError(), "its ACL is invalid, and was left as it is");
}

TEST_F(Program, InvalidAclSucceedsWhenSettingNoEntries) {
  tree_.makeFile("file", 0644);
  tree_.setValue("file", "rubbish");
  expectDone("31", 0);
}

TEST_F(Program, InvalidAclOfStartingFolderIsNotPropagated) {
  tree_.setValue("", "rubbish");
  tree_.makeFile("file", 0644);
  EXPECT_EQ(tree_.run("32").status, 2);
  EXPECT_THAT(*tree_.status().string("error"), HasSubstr("invalid"));
}

}  // namespace
}  // namespace paddock::copyprivs
