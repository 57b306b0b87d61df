#include "base/trusted_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "support/temporary_folder.h"

namespace paddock {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr uid_t kNobody = 65534;
constexpr std::size_t kLimit = 100;

class TrustedPath : public ::testing::Test {
 protected:
  TrustedPath() {
    fs::create_directories(folder_.path("a/b"));
    writeWholeFile(file_, "text");
  }
  static void setMode(const std::string& path, mode_t mode) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
  }
  // The number of the error that the file cannot be read with; 0 when it can, -1 when others could
  // have changed it.
  static int errorOf(const std::string& path) {
    try {
      return readTrustedFile(path, kLimit) ? 0 : ENOENT;
    } catch (const std::system_error& error) {
      return error.code().value();
    } catch (const UntrustedPath&) {
      return -1;
    }
  }

  TestFolder folder_;
  const std::string file_ = folder_.path("a/b/file");
};

TEST_F(TrustedPath, OwnFileIsReadAndOneThatIsMissingIsNot) {
  EXPECT_EQ(readTrustedFile(file_, kLimit), "text");
  EXPECT_EQ(whyUntrusted(file_), "");
  EXPECT_EQ(readTrustedFile(folder_.path("a/none"), kLimit), std::nullopt);
  EXPECT_EQ(readTrustedFile(folder_.path("none/file"), kLimit), std::nullopt);
  EXPECT_EQ(readTrustedFile(file_ + "/below", kLimit), std::nullopt);
  EXPECT_EQ(readTrustedFile("", kLimit), std::nullopt);
  EXPECT_EQ(whyUntrusted(folder_.path("none")), "");
}

TEST_F(TrustedPath, OnlySmallRegularFilesAreRead) {
  EXPECT_EQ(errorOf(folder_.path("a")), EINVAL);
  writeWholeFile(file_, std::string(kLimit + 1, 'x'));
  EXPECT_EQ(errorOf(file_), EFBIG);
  ASSERT_EQ(::mkfifo(folder_.path("a/fifo").c_str(), 0600), 0);
  EXPECT_EQ(errorOf(folder_.path("a/fifo")), EINVAL) << "and nobody waits for a writer";
}

TEST_F(TrustedPath, WhatOthersCanWriteIsNamedWithTheWayOut) {
  for (const char* place : {"a/b/file", "a/b", "a", ""}) {
    const std::string path = folder_.path() + (*place != '\0' ? "/" : "") + place;
    setMode(path, 0757);
    EXPECT_EQ(whyUntrusted(file_),
              "others can change " + path + " (mode 0757): chmod go-w " + path);
    EXPECT_EQ(errorOf(file_), -1);
    setMode(path, 0755);
    EXPECT_EQ(errorOf(file_), 0);
  }
}

TEST_F(TrustedPath, GroupsMayNotWriteWhatRootUses) {
  if (::geteuid() != 0) GTEST_SKIP() << "another user's process counts its groups as its own";
  setMode(folder_.path("a"), 0775);
  EXPECT_THAT(whyUntrusted(file_), HasSubstr("/a (mode 0775)"));
}

TEST_F(TrustedPath, FoldersAboveMayBeWrittenWhenSticky) {
  setMode(folder_.path("a"), 01777);
  EXPECT_EQ(errorOf(file_), 0);
  EXPECT_EQ(whyUntrusted(folder_.path("a/b")), "");
  EXPECT_THAT(whyUntrusted(folder_.path("a")), HasSubstr("(mode 1777)"))
      << "others can make entries in the folder itself";
  setMode(file_, 01666);
  EXPECT_EQ(errorOf(file_), -1) << "the bit protects no file";
}

TEST_F(TrustedPath, WhatBelongsToSomebodyElseIsNamed) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file away needs root";
  for (const std::string& path : {file_, folder_.path("a/b"), folder_.path("a")}) {
    ASSERT_EQ(::chown(path.c_str(), kNobody, 0), 0);
    EXPECT_EQ(whyUntrusted(file_),
              path + " belongs to user 65534, not to root: chown root " + path);
    ASSERT_EQ(::chown(path.c_str(), 0, 0), 0);
  }
  setMode(folder_.path("a"), 01777);
  ASSERT_EQ(::chown(folder_.path("a").c_str(), kNobody, 0), 0);
  EXPECT_EQ(errorOf(file_), -1) << "the owner of a sticky folder can replace all in it";
}

TEST_F(TrustedPath, LinksAreFollowedThroughTrustedFolders) {
  fs::create_directory(folder_.path("open"));
  writeWholeFile(folder_.path("open/file"), "other");
  fs::create_symlink(file_, folder_.path("a/absolute"));
  fs::create_symlink("../b/./../../a/b//file", folder_.path("a/b/relative"));
  fs::create_symlink("b", folder_.path("a/folder"));
  for (const char* place : {"a/absolute", "a/b/relative", "a/folder/file", "a/folder/relative"})
    EXPECT_EQ(readTrustedFile(folder_.path(place), kLimit), "text") << place;
  fs::create_symlink("../open/file", folder_.path("a/open"));
  EXPECT_EQ(readTrustedFile(folder_.path("a/open"), kLimit), "other");
  setMode(folder_.path("open"), 0777);
  EXPECT_THAT(whyUntrusted(folder_.path("a/open")), HasSubstr(folder_.path("open") + " (mode"));
  EXPECT_EQ(errorOf(folder_.path("open/../a/b/file")), -1) << "it is on the way";
  fs::create_symlink("loop", folder_.path("a/loop"));
  EXPECT_EQ(errorOf(folder_.path("a/loop")), ELOOP);
}

TEST_F(TrustedPath, LinksOfOthersAreNotFollowed) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a link away needs root";
  setMode(folder_.path("a"), 01777);
  fs::create_symlink(file_, folder_.path("a/link"));
  EXPECT_EQ(errorOf(folder_.path("a/link")), 0);
  ASSERT_EQ(::lchown(folder_.path("a/link").c_str(), kNobody, 0), 0);
  EXPECT_THAT(whyUntrusted(folder_.path("a/link")), StartsWith(folder_.path("a/link belongs to")));
}

TEST_F(TrustedPath, NamesThatAreShownCannotControlTerminals) {
  const std::string general = "\xE2\x80";  // in two parts, so that this line is not turned around
  const std::string odd = folder_.path("a/\x1B[2J" + general + "\xAE");
  writeWholeFile(odd, "text");
  setMode(odd, 0666);
  const std::string why = whyUntrusted(odd);
  EXPECT_EQ(why.find('\x1B'), std::string::npos) << why;
  EXPECT_THAT(why, HasSubstr("\\x1B[2J\\xE2\\x80\\xAE"));
}

}  // namespace
}  // namespace paddock
