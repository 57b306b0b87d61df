// The program itself under failures.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "base/file_access.h"
#include "support/copyprivs_tree.h"
#include "support/loop_volume.h"
#include "support/own_mounts.h"

namespace paddock::copyprivs {
namespace {

using nt_acl::kContainerInherit;
using nt_acl::kInherited;
using nt_acl::kObjectInherit;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr std::uint8_t kBoth = kObjectInherit | kContainerInherit;
constexpr std::uint32_t kAnna = 21001;
constexpr std::uint32_t kBert = 21002;
constexpr std::uint32_t kReading = 0x1;

struct Error {
  std::string path;
  std::string error;
  friend bool operator==(const Error&, const Error&) = default;
};
std::ostream& operator<<(std::ostream& out, const Error& error) {
  return out << error.path << ": " << error.error;
}

std::vector<Error> errorsIn(const Dictionary& status) {
  std::vector<Error> errors;
  for (const Value& error : *status.array("errors")) {
    errors.push_back({*error.dictionary()->string("path"), *error.dictionary()->string("error")});
  }
  return errors;
}

class ProgramFailures : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
    const std::string why = whyNoLists(data_.path());
    if (!why.empty()) GTEST_SKIP() << why;
  }

  const TestFolder data_;
  const TestTree tree_{data_.path()};
};

// On ext4 in a file.
class ProgramOnAVolume : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = whyNoLoopVolumes();
    if (!why.empty()) GTEST_SKIP() << why;
  }
};

void setImmutable(const std::string& path, bool isOn) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  int flags = 0;
  ASSERT_EQ(::ioctl(file.get(), FS_IOC_GETFLAGS, &flags), 0);
  flags = isOn ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  ASSERT_EQ(::ioctl(file.get(), FS_IOC_SETFLAGS, &flags), 0);
}

TEST_F(ProgramOnAVolume, ImmutableFileCountsOnceAndRestIsSet) {
  runInOwnMounts([] {
    const LoopVolume volume;
    const TestTree tree(volume.path());
    tree.own("", 0770, kAnna, kBert);
    tree.makeFile("fixed", 0600);
    tree.makeFile("other", 0600);
    setImmutable(tree.path("fixed"), true);
    EXPECT_EQ(tree.run("63").status, 1);
    EXPECT_EQ(tree.status().integer("errorCount"), 1);
    EXPECT_EQ(tree.status().integer("itemsDone"), 2);
    EXPECT_EQ(tree.status().integer("itemsChanged"), 1);
    EXPECT_THAT(
        errorsIn(tree.status()),
        ElementsAre(Error{tree.path("fixed"), "cannot change the owner: Operation not permitted"}));
    EXPECT_EQ(lstatOf(tree.path("other")).st_uid, kAnna);
    setImmutable(tree.path("fixed"), false);
  });
}

TEST_F(ProgramOnAVolume, MissingAttributeSpaceKeepsListAndSetsRest) {
  runInOwnMounts([] {
    const LoopVolume volume;  // has blocks of 1,024 bytes
    const TestTree tree(volume.path());
    tree.configure("[acl]\nprojection = false\n");
    tree.own("", 0770, kAnna, kBert);
    const std::vector<nt_acl::Ace> few{aceOf(kBert, 0, kReading)};
    std::vector<nt_acl::Ace> many;
    for (std::uint32_t uid = 0; uid < 22; ++uid) many.push_back(aceOf(uid, kBoth, kReading));
    tree.makeFile("file", 0600);
    tree.setList("file", few);
    tree.setList("", many);
    tree.setValue("file", std::string(400, 'x'), "user.filler");
    EXPECT_EQ(tree.run("63").status, 1);
    EXPECT_THAT(
        errorsIn(tree.status()),
        ElementsAre(Error{tree.path("file"), "cannot set the ACL: No space left on device"}));
    EXPECT_EQ(attributeOf(tree.path("file"), kListAttribute), listFor(tree.path("file"), few));
    EXPECT_EQ(lstatOf(tree.path("file")).st_uid, kAnna);
    EXPECT_EQ(permissionsOf(tree.path("file")), 0660U);
  });
}

TEST_F(ProgramOnAVolume, ImmutableFileToCloseCountsOncePerMask) {
  runInOwnMounts([] {
    const LoopVolume volume;
    const TestTree tree(volume.path());
    tree.own("", 0770, kAnna, kBert);
    tree.setList("", {aceOf(kAnna, kBoth, kReading)});
    tree.makeFile("fixed", 04604);
    setImmutable(tree.path("fixed"), true);
    for (const std::string mask : {"2", "3", "32", "35", "60", "63"}) {
      EXPECT_EQ(tree.run(mask).status, 1) << mask;
      EXPECT_EQ(tree.status().integer("errorCount"), 1) << mask;
      EXPECT_EQ(tree.status().integer("itemsChanged"), 0) << mask;
      EXPECT_EQ(permissionsOf(tree.path("fixed")), 04604U) << mask;
    }
    setImmutable(tree.path("fixed"), false);
  });
}

TEST_F(ProgramOnAVolume, FailedLaterStepReopensClosedFile) {
  runInOwnMounts([] {
    const LoopVolume volume;
    const TestTree tree(volume.path());
    tree.configure("[acl]\nprojection = false\n");
    tree.own("", 0770, kAnna, kBert);
    std::vector<nt_acl::Ace> many;
    for (std::uint32_t uid = 0; uid < 22; ++uid) many.push_back(aceOf(uid, kBoth, kReading));
    tree.setList("", many);
    tree.makeFile("file", 0615);
    tree.setValue("file", std::string(400, 'x'), "user.filler");
    EXPECT_EQ(tree.run("35").status, 1);
    EXPECT_THAT(
        errorsIn(tree.status()),
        ElementsAre(Error{tree.path("file"), "cannot set the ACL: No space left on device"}));
    EXPECT_EQ(permissionsOf(tree.path("file")), 0615U);
    EXPECT_EQ(lstatOf(tree.path("file")).st_gid, kBert);
    EXPECT_EQ(tree.run("63").status, 1);
    EXPECT_EQ(permissionsOf(tree.path("file")), 0671U);
  });
}

TEST_F(ProgramOnAVolume, ReadOnlyMountFailsEachObjectWithoutStopping) {
  runInOwnMounts([] {
    const LoopVolume volume;
    const TestTree tree(volume.path());
    tree.own("", 0770, kAnna, kBert);
    tree.makeFolder("sub");
    tree.makeFile("sub/file");
    ASSERT_EQ(::mount("", volume.path().c_str(), "", MS_REMOUNT | MS_RDONLY, ""), 0);
    EXPECT_EQ(tree.run("63").status, 1);
    EXPECT_EQ(tree.status().integer("errorCount"), 2);
    EXPECT_EQ(tree.status().integer("itemsDone"), 2);
    EXPECT_EQ(tree.status().integer("itemsChanged"), 0);
    EXPECT_EQ(errorsIn(tree.status()).front().error,
              "cannot change the owner: Read-only file system");
  });
}

TEST_F(ProgramOnAVolume, AnotherMountInsideIsNeitherEnteredNorCounted) {
  runInOwnMounts([] {
    const LoopVolume volume;
    const TestTree tree(volume.path());
    tree.own("", 0770, kAnna, kBert);
    tree.makeFolder("mounted");
    tree.makeFile("bound");
    tree.makeFile("outside");
    std::filesystem::rename(tree.path("outside"), volume.path("outside"));
    std::filesystem::create_directory(volume.path("elsewhere"));
    writeWholeFile(volume.path("elsewhere/file"), "");
    bindMount(volume.path("elsewhere"), tree.path("mounted"));
    bindMount(volume.path("outside"), tree.path("bound"));
    EXPECT_EQ(tree.run("63").status, 0);
    EXPECT_EQ(tree.status().integer("itemsTotal"), 0);
    for (const char* name : {"elsewhere", "elsewhere/file", "outside"}) {
      EXPECT_EQ(lstatOf(volume.path(name)).st_uid, 0U) << name;
    }
  });
}

TEST_F(ProgramOnAVolume, WithoutAListAttributeOnlyTheAclFails) {
  runInOwnMounts([] {
    const LoopVolume volume;
    const TestTree tree(volume.path());
    tree.configure("[acl]\nattribute = \"user.list\"\n");
    tree.own("", 0770, kAnna, kBert);
    tree.setValue("", listFor(tree.path(), {aceOf(kAnna, kBoth, kReading)}), "user.list");
    ASSERT_EQ(::mkfifo(tree.path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(tree.run("63").status, 1);
    EXPECT_THAT(
        errorsIn(tree.status()),
        ElementsAre(Error{tree.path("fifo"), "cannot set the ACL: Operation not permitted"}));
    EXPECT_EQ(lstatOf(tree.path("fifo")).st_uid, kAnna);
    EXPECT_EQ(permissionsOf(tree.path("fifo")), 0660U);
  });
}

TEST_F(ProgramOnAVolume, WithoutProjectionTheKernelsAclsAreLeftAlone) {
  runInOwnMounts([] {
    const LoopVolume volume;
    const TestTree tree(volume.path());
    tree.configure("[acl]\nprojection = false\n");
    tree.setList("", {aceOf(kAnna, kBoth, kReading)});
    tree.makeFile("file");
    EXPECT_EQ(tree.run("63").status, 0);
    EXPECT_THAT(entriesOf(tree.path("file")).entries,
                ElementsAre(aceOf(kAnna, kInherited, kReading)));
    EXPECT_EQ(posixAclOf(tree.path("file"), posix_acl::kAccessAttribute), std::nullopt);
  });
}

TEST_F(ProgramOnAVolume, KernelGrantsAccessOfInheritedEntries) {
  runInOwnMounts([] {
    const LoopVolume volume;
    const TestTree tree(volume.path());
    tree.own("", 0700, 0, 0);
    tree.setList("", {aceOf(kAnna, kBoth, 0x21)});
    tree.makeFolder("sub", 0700);
    EXPECT_EQ(tree.run("63").status, 0);
    const auto access = posixAclOf(tree.path("sub"), posix_acl::kAccessAttribute);
    ASSERT_TRUE(access);
    EXPECT_THAT(access->users, ElementsAre(posix_acl::Named{kAnna, 5}));
    EXPECT_TRUE(posixAclOf(tree.path("sub"), posix_acl::kDefaultAttribute));
  });
}

TEST_F(ProgramFailures, SpecialFilesAreSetAndNeverOpened) {
  tree_.own("", 0770, kAnna, kBert);
  ASSERT_EQ(::mkfifo(tree_.path("fifo").c_str(), 0600), 0);
  const bool hasDevice =
      ::mknod(tree_.path("device").c_str(), S_IFCHR | 0600, makedev(240, 255)) == 0;
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  tree_.path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  // Opening the FIFO for writing blocks until there is a reader, or fails because there is none.
  EXPECT_EQ(tree_.run("31").status, 0);
  EXPECT_EQ(tree_.status().integer("itemsChanged"), hasDevice ? 3 : 2);
  for (const char* name : {"fifo", "socket", "device"}) {
    if (!hasDevice && name == std::string("device")) continue;
    EXPECT_EQ(lstatOf(tree_.path(name)).st_uid, kAnna) << name;
    EXPECT_EQ(permissionsOf(tree_.path(name)) & 0066U, 0060U) << name;
  }
}

TEST_F(ProgramFailures, NamesOfAllKindsAreWorkedOn) {
  tree_.own("", 0770, kAnna, kBert);
  for (const std::string& name :
       {std::string("line\nfeed"), std::string("\xFF\xFE"), std::string(255, 'n'),
        std::string("-p"), std::string(" "), std::string("\x01")}) {
    tree_.makeFolder(name);
    tree_.makeFile(name + "/file", 0600);
  }
  EXPECT_EQ(tree_.run("31").status, 0);
  EXPECT_EQ(tree_.status().integer("itemsChanged"), 12);
}

TEST_F(ProgramFailures, ErrorPathIsTextForAnyName) {
  tree_.makeFile("\xFF\n\x01&");
  tree_.setValue("\xFF\n\x01&", "rubbish");
  EXPECT_EQ(tree_.run("32").status, 1);
  EXPECT_EQ(errorsIn(tree_.status()).front().path, tree_.path("\\xFF\n\\x01&"));
}

TEST_F(ProgramFailures, TheFirstHundredErrorsAreTold) {
  for (int file = 0; file < 120; ++file) {
    tree_.makeFile(std::to_string(file));
    tree_.setValue(std::to_string(file), "rubbish");
  }
  EXPECT_EQ(tree_.run("32").status, 1);
  EXPECT_EQ(tree_.status().integer("errorCount"), 120);
  EXPECT_EQ(errorsIn(tree_.status()).size(), 100U);
}

TEST_F(ProgramFailures, StatusFileStaysBelowOneMebibyte) {
  std::string deep;
  for (int level = 0; level < 60; ++level) deep += std::string(250, '&') + "/";
  const std::string start = std::filesystem::current_path();
  std::string base = tree_.path();
  ASSERT_EQ(::chdir(base.c_str()), 0);
  for (int level = 0; level < 60; ++level) {
    ASSERT_EQ(::mkdir(std::string(250, '&').c_str(), 0755), 0);
    ASSERT_EQ(::chdir(std::string(250, '&').c_str()), 0);
  }
  for (int file = 0; file < 110; ++file) writeWholeFile("f" + std::to_string(file), "");
  for (int file = 0; file < 110; ++file) {
    ASSERT_EQ(setAttribute("f" + std::to_string(file), kListAttribute, "rubbish"), 0);
  }
  ASSERT_EQ(::chdir(start.c_str()), 0);
  tree_.own("", 0755, kAnna, kBert);
  EXPECT_EQ(tree_.run("63", {"-n"}).status, 1);
  EXPECT_EQ(tree_.status().array("errors")->size(), 100U);
  EXPECT_EQ(tree_.status().array("examples")->size(), 100U);
  EXPECT_LE(std::filesystem::file_size(tree_.statusFile()), std::size_t{1} << 20U);
}

TEST_F(ProgramFailures, ModeAndOwnerChangesClearSetIdBits) {
  tree_.own("", 0755, 0, kBert);
  tree_.makeFolder("folder", 03775);
  tree_.makeFile("program", 04755);
  tree_.makeFile("kept", 04755, 0, kBert);
  EXPECT_EQ(tree_.run("2").status, 0);
  EXPECT_EQ(permissionsOf(tree_.path("folder")), 03775U);
  EXPECT_EQ(permissionsOf(tree_.path("program")), 0755U);
  EXPECT_EQ(permissionsOf(tree_.path("kept")), 04755U);
  EXPECT_EQ(tree_.run("16").status, 0);
  EXPECT_EQ(permissionsOf(tree_.path("folder")), 0775U);
  EXPECT_EQ(permissionsOf(tree_.path("kept")), 0755U);
}

TEST_F(ProgramFailures, StatusFileSymlinkIsSkippedAndRunCompletes) {
  tree_.own("", 0755, kAnna, kBert);
  tree_.makeFile("file");
  writeWholeFile(data_.path("victim"), "precious");
  std::filesystem::create_symlink(data_.path("victim"), tree_.statusFile());
  const EndedProgram ended = tree_.run("1");
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.error, HasSubstr("cannot write the status file"));
  EXPECT_EQ(readWholeFile(data_.path("victim")), "precious");
  EXPECT_TRUE(std::filesystem::is_symlink(tree_.statusFile()));
  EXPECT_EQ(lstatOf(tree_.path("file")).st_uid, kAnna);
}

TEST_F(ProgramFailures, ForeignStatusFileIsLeftAlone) {
  tree_.makeFile("file");
  writeWholeFile(tree_.statusFile(), "theirs");
  ASSERT_EQ(::chown(tree_.statusFile().c_str(), kAnna, kBert), 0);
  EXPECT_THAT(tree_.run("1").error, HasSubstr("it belongs to somebody else"));
  EXPECT_EQ(readWholeFile(tree_.statusFile()), "theirs");
}

TEST_F(ProgramFailures, MissingStatusFolderIsReportedAndRunCompletes) {
  tree_.own("", 0755, kAnna, kBert);
  tree_.makeFile("file");
  const EndedProgram ended = runProgram(
      {tree_.program(), "-p", tree_.path(), "-f", "1", "-s", tree_.root("missing/status")});
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.error, HasSubstr("No such file or directory"));
  EXPECT_EQ(lstatOf(tree_.path("file")).st_uid, kAnna);
}

TEST_F(ProgramFailures, AStatusFileIsItsOwnersAlone) {
  const mode_t before = ::umask(0);
  tree_.run("1");
  ::umask(before);
  const struct stat status = lstatOf(tree_.statusFile());
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  EXPECT_EQ(status.st_nlink, 1U);
  std::vector<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(tree_.root("tmp"))) {
    left.push_back(entry.path().filename());
  }
  EXPECT_THAT(left, ElementsAre("status"));
}

TEST_F(ProgramFailures, InvalidConfigurationIsReportedAndChangesNothing) {
  tree_.configure("[acl]\nwrong = 1\n");
  tree_.own("", 0755, kAnna, kBert);
  tree_.makeFile("file");
  EXPECT_EQ(tree_.run("63").status, 2);
  EXPECT_THAT(*tree_.status().string("error"), HasSubstr("wrong"));
  EXPECT_EQ(lstatOf(tree_.path("file")).st_uid, 0U);
}

TEST_F(ProgramFailures, TheModulesNameForTheProgramIsTaken) {
  tree_.own("", 0755, kAnna, kBert);
  tree_.makeFile("file");
  std::vector<std::string> words = tree_.wordsFor("1");
  words.front() = "CopyPrivs";
  EXPECT_EQ(runProgramAs(tree_.program(), words).status, 0);
  EXPECT_EQ(lstatOf(tree_.path("file")).st_uid, kAnna);
}

TEST_F(ProgramFailures, NoEnvironmentIsNeeded) {
  tree_.own("", 0755, kAnna, kBert);
  tree_.makeFile("file");
  std::vector<std::string> words = tree_.wordsFor("1");
  words.insert(words.begin(), {"/usr/bin/env", "-i"});
  EXPECT_EQ(runProgram(words).status, 0);
  EXPECT_EQ(lstatOf(tree_.path("file")).st_uid, kAnna);
}

}  // namespace
}  // namespace paddock::copyprivs
