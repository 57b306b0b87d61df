#include "synchronize-shares/samba_configuration.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "platform/linux/files/linux_text_files.h"
#include "support/open_descriptors.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock::synchronizer {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kUsual = "security.NTACL";

// What stands behind the heading.
std::string sectionsOf(const std::vector<SharePoint>& shares,
                       const std::string& attribute = kUsual) {
  std::vector<const SharePoint*> pointers;
  for (const SharePoint& share : shares) pointers.push_back(&share);
  const std::string text = includeFileText(pointers, attribute);
  EXPECT_THAT(text, StartsWith("# "));
  return text.substr(text.find("\n\n") + 1);
}

TEST(IncludeFileText, ListsSectionsPerShareAndEndsInGlobal) {
  EXPECT_EQ(sectionsOf({{"plans", "/srv/plans", "Plans"}, {"films 2", "/srv/films", "films"}}),
            "\n[Plans]\n"
            "    path = /srv/plans\n"
            "    comment = plans\n"
            "    read only = no\n"
            "    vfs objects = acl_xattr\n"
            "    acl_xattr:ignore system acls = yes\n"
            "    inherit permissions = yes\n"
            "\n[films]\n"
            "    path = /srv/films\n"
            "    comment = films 2\n"
            "    read only = no\n"
            "    vfs objects = acl_xattr\n"
            "    acl_xattr:ignore system acls = yes\n"
            "    inherit permissions = yes\n"
            "\n[global]\n");
}

TEST(IncludeFileText, HasTheSharesOwnOptionsBehindTheOthers) {
  SharePoint share{"plans", "/srv/plans", "Plans"};
  share.smb.options.readOnly = true;
  share.smb.options.parameters = {{"max connections", "5"}};
  EXPECT_THAT(sectionsOf({share}), HasSubstr("    inherit permissions = yes\n"
                                             "    read only = yes\n"
                                             "    max connections = 5\n"
                                             "\n[global]\n"));
}

TEST(IncludeFileText, InheritedEntriesLeaveLocalCreationToKernel) {
  EXPECT_EQ(sectionsOf({{"plans", "/srv/plans", "Plans", {}, true}}),
            "\n[Plans]\n"
            "    path = /srv/plans\n"
            "    comment = plans\n"
            "    read only = no\n"
            "    vfs objects = acl_xattr\n"
            "    acl_xattr:ignore system acls = no\n"
            "    inherit permissions = yes\n"
            "    create mask = 0700\n"
            "    directory mask = 0700\n"
            "    acl map full control = no\n"
            "    map archive = no\n"
            "    map readonly = no\n"
            "    store dos attributes = yes\n"
            "\n[global]\n");
}

TEST(IncludeFileText, NamesAnotherAttributeAndNotTheUsualOne) {
  EXPECT_THAT(sectionsOf({{"a", "/a", "a"}}, "user.NTACL"),
              HasSubstr("\n    acl_xattr:security_acl_name = user.NTACL\n"));
  EXPECT_THAT(sectionsOf({{"a", "/a", "a"}}), Not(HasSubstr("security_acl_name")));
}

TEST(IncludeFileText, UnwritableRecordNameOmitsComment) {
  const std::string text = sectionsOf({{"a\nguest ok = yes", "/a", "a"}, {"b\\", "/b", "b"}});
  EXPECT_THAT(text, Not(HasSubstr("comment")));
  EXPECT_THAT(text, Not(HasSubstr("guest")));
  EXPECT_THAT(text, HasSubstr("[a]"));
  EXPECT_THAT(text, HasSubstr("[b]"));
}

TEST(IncludeFileText, AnAttributeThatCannotBeWrittenIsRefused) {
  for (const char* attribute : {"user.a\nguest ok = yes", "user.a\\", "user.%U"})
    EXPECT_THROW(includeFileText({}, attribute), std::runtime_error) << attribute;
}

class IncludeFileOnDisk : public ::testing::Test {
 protected:
  // Whether something was written.
  bool bringUpToDate(const std::string& text) {
    LinuxTextFiles files;
    IncludeFile file(files, root());
    if (file.isUpToDate(text)) return false;
    file.replace(text);
    return true;
  }
  const std::string& root() const { return folder_.path(); }
  std::string path() const { return folder_.path("etc/samba/paddock-shares.conf"); }
  struct stat status() const {
    struct stat found {};
    EXPECT_EQ(::stat(path().c_str(), &found), 0);
    return found;
  }

  TestFolder folder_;
};

TEST_F(IncludeFileOnDisk, IsCreatedWithFolderAndReadableByAll) {
  EXPECT_TRUE(bringUpToDate("text\n"));
  EXPECT_EQ(readWholeFile(path()), "text\n");
  EXPECT_EQ(status().st_mode, static_cast<mode_t>(S_IFREG | 0644));
}

TEST_F(IncludeFileOnDisk, UnchangedContentIsNotWritten) {
  bringUpToDate("text\n");
  const struct stat before = status();
  EXPECT_FALSE(bringUpToDate("text\n"));
  EXPECT_EQ(status().st_ino, before.st_ino);
  EXPECT_EQ(status().st_mtim.tv_sec, before.st_mtim.tv_sec);
  EXPECT_EQ(status().st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_EQ(status().st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_F(IncludeFileOnDisk, IsReplacedWithItsModeAndOwner) {
  bringUpToDate("old\n");
  ASSERT_EQ(::chmod(path().c_str(), 0640), 0);
  const struct stat before = status();
  EXPECT_TRUE(bringUpToDate("new\n"));
  EXPECT_EQ(readWholeFile(path()), "new\n");
  EXPECT_NE(status().st_ino, before.st_ino);
  EXPECT_EQ(status().st_mode, before.st_mode);
}

TEST_F(IncludeFileOnDisk, SymlinkStaysAndItsTargetIsReplaced) {
  std::filesystem::create_directories(folder_.path("etc/samba"));
  std::filesystem::create_symlink(folder_.path("elsewhere"), path());
  EXPECT_TRUE(bringUpToDate("text\n"));
  EXPECT_TRUE(std::filesystem::is_symlink(path()));
  EXPECT_EQ(readWholeFile(folder_.path("elsewhere")), "text\n");
}

TEST_F(IncludeFileOnDisk, NonFileIsLeftAloneAndReported) {
  std::filesystem::create_directories(path());
  try {
    bringUpToDate("text\n");
    FAIL() << "a folder was replaced";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EISDIR);
    EXPECT_THAT(error.what(), HasSubstr(path()));
  }
  EXPECT_TRUE(std::filesystem::is_directory(path()));
}

TEST_F(IncludeFileOnDisk, FullDiskKeepsOldFileWithoutLeftovers) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    std::filesystem::create_directories(folder_.path("etc/samba"));
    mountTmpfs(folder_.path("etc/samba"), "64k");
    bringUpToDate("old\n");
    try {
      bringUpToDate(std::string(200'000, 'x'));
      FAIL() << "more was written than there is room for";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), ENOSPC);
    }
    EXPECT_EQ(readWholeFile(path()), "old\n");
    const auto entries = std::filesystem::directory_iterator(folder_.path("etc/samba"));
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
  });
}

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;

// A program in smbcontrol's place.
class SmbServerNotification : public ::testing::Test {
 protected:
  std::string program() const { return folder_.path("smbcontrol"); }
  std::string told() const { return readWholeFile(folder_.path("told")); }

  void script(const std::string& lines) const {
    writeWholeFile(program(), "#!/bin/sh\n" + lines + "\n");
    std::filesystem::permissions(program(), std::filesystem::perms(0755));
  }

  TestFolder folder_;
};

TEST_F(SmbServerNotification, IsToldToReadItsConfigurationAgain) {
  script("echo \"$@\" >" + folder_.path("told"));
  EXPECT_EQ(tellSmbServer(program()), "");
  EXPECT_EQ(told(), "smbd reload-config\n");
}

TEST_F(SmbServerNotification, ClosesConnectionsToShare) {
  script("printf '%s|' \"$@\" >" + folder_.path("told"));
  EXPECT_EQ(endConnections(program(), "Summer photos"), "");
  EXPECT_EQ(told(), "smbd|close-share|Summer photos|");
}

TEST_F(SmbServerNotification, NothingIsWrongWithoutTheProgram) {
  EXPECT_EQ(tellSmbServer(program()), "");
}

TEST_F(SmbServerNotification, NothingIsWrongWhenNoneRuns) {
  script("echo \"Can't find pid for destination 'smbd'\" >&2; exit 1");
  EXPECT_EQ(tellSmbServer(program()), "");
}

TEST_F(SmbServerNotification, AnotherFailureIsPassedOn) {
  script("echo 'something else' >&2; exit 3");
  EXPECT_EQ(tellSmbServer(program()),
            "smbd is not told, " + program() + " ended with status 3: something else\n");
}

TEST_F(SmbServerNotification, AProgramThatCannotBeStartedIsNamed) {
  writeWholeFile(program(), "");
  EXPECT_THAT(tellSmbServer(program()),
              AllOf(HasSubstr("cannot start " + program()), EndsWith("Permission denied")));
}

TEST_F(SmbServerNotification, AProgramThatHangsIsEnded) {
  script("echo $$ >" + folder_.path("told") + "; exec sleep 1000");
  EXPECT_EQ(tellSmbServer(program(), 500ms), "smbd is not told, " + program() + " takes too long");
  EXPECT_EQ(::kill(std::stoi(told()), 0), -1);
}

TEST_F(SmbServerNotification, ProgramRunsInProcessGroupOfStarter) {
  script("cut -d' ' -f5 /proc/$$/stat >" + folder_.path("told"));
  EXPECT_EQ(tellSmbServer(program()), "");
  EXPECT_EQ(std::stoi(told()), ::getpgrp());
}

TEST_F(SmbServerNotification, HangingProgramWithClosedOutputIsKilled) {
  script("exec >&- 2>&-; exec sleep 1000");
  EXPECT_THAT(tellSmbServer(program(), 300ms), EndsWith("takes too long"));
}

TEST_F(SmbServerNotification, BackgroundProcessIsNotAwaited) {
  script("sleep 1000 & echo $! >" + folder_.path("told"));
  EXPECT_EQ(tellSmbServer(program(), 60s), "");
  ::kill(std::stoi(told()), SIGKILL);
}

TEST_F(SmbServerNotification, OfMuchOutputTheBeginningIsKept) {
  script("head -c 1000000 /dev/zero | tr '\\0' x; exit 1");
  EXPECT_LT(tellSmbServer(program()).size(), 5000U);
}

TEST_F(SmbServerNotification, NoDescriptorAndNoProcessIsLeft) {
  script("exit 1");
  tellSmbServer(program());
  const auto before = openDescriptors();
  tellSmbServer(program());
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
}

}  // namespace

}  // namespace paddock::synchronizer
