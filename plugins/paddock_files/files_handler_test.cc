#include "paddock_files/files_handler.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "base/status.h"
#include "platform/linux/file_object.h"
#include "platform/linux/posix_acl.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

class FilesHandlerTest : public ::testing::Test {
 protected:
  FilesHandlerTest() {
    std::ofstream(file_) << "text";
    ::chmod(folder_.path().c_str(), 0750);
  }

  Dictionary call(const std::string& operation, const std::string& path,
                  const std::string& bits = {}) {
    Dictionary request{{"path", path}};
    if (!bits.empty()) request.set("bits", bits);
    return handler_.performOperation(operation, request);
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
  }
  static void expectError(const Dictionary& reply, int error) {
    EXPECT_EQ(reply, (Dictionary{{"status", error}, {"error", sharing_error_string(error)}}));
  }

  TestFolder folder_;
  const std::string file_ = folder_.path("file");
  FilesRequestHandler handler_;
};

TEST_F(FilesHandlerTest, TellsAllFourDigitsAndTheIds) {
  ASSERT_EQ(::chmod(folder_.path().c_str(), 03051), 0);
  EXPECT_EQ(
      call("getMode", folder_.path()),
      (Dictionary{{"mode", "3051"}, {"uid", ::geteuid()}, {"gid", ::getegid()}, {"status", 0}}));
  ASSERT_EQ(::chmod(file_.c_str(), 0007), 0);
  EXPECT_EQ(*call("getMode", file_).string("mode"), "0007");
}

TEST_F(FilesHandlerTest, TheGroupsDigitIsTheOwningGroupsAndNotTheMask) {
  posix_acl::Acl acl;
  acl.classes = {7, 1, 0};
  acl.users = {{1000, 7}};
  acl.computeMask();
  FileDescriptor object;
  ASSERT_EQ(openObject(folder_.path(), object), 0);
  if (linuxExtendedAttributes().set(object.get(), posix_acl::kAccessAttribute,
                                    posix_acl::encode(acl)) == EOPNOTSUPP)
    GTEST_SKIP() << "the file system of the temporary folder takes no POSIX ACLs";
  EXPECT_EQ(*call("getMode", folder_.path()).string("mode"), "0710");
  EXPECT_EQ(*call("setModeBits", folder_.path(), "2").string("mode"), "2710");
  EXPECT_EQ(modeOf(folder_.path()), 02770U) << "the mask is another one";
}

TEST_F(FilesHandlerTest, TheBitsOfAFolderAreSetAndTheRestStays) {
  for (const char* bits : {"2", "7", "1", "0"}) {
    EXPECT_EQ(*call("setModeBits", folder_.path(), bits).string("mode"), std::string(bits) + "750");
    EXPECT_EQ(modeOf(folder_.path()) >> 9U, static_cast<mode_t>(bits[0] - '0'));
  }
}

TEST_F(FilesHandlerTest, AFileGetsNone) {
  const mode_t before = modeOf(file_);
  expectError(call("setModeBits", file_, "4"), ENOTDIR);
  expectError(call("setModeBits", file_, "0"), ENOTDIR);
  EXPECT_EQ(modeOf(file_), before);
}

TEST_F(FilesHandlerTest, WhatIsMissingOrCannotBeMeantIsAnError) {
  expectError(call("getMode", folder_.path("missing")), ENOENT);
  expectError(call("setModeBits", folder_.path("missing"), "2"), ENOENT);
  for (const char* bits : {"8", "22", "x", "-1", " 2"}) {
    expectError(call("setModeBits", folder_.path(), bits), EINVAL);
  }
  expectError(call("setModeBits", folder_.path()), EINVAL);
  expectError(call("getMode", "relative"), EINVAL);
  expectError(handler_.performOperation("getMode", {}), EINVAL);
  expectError(handler_.performOperation("getMode", {{"path", 7}}), EINVAL);
  expectError(handler_.performOperation("setModeBits", {{"path", folder_.path()}, {"bits", 2}}),
              EINVAL);
  EXPECT_EQ(modeOf(folder_.path()), 0750U);
  EXPECT_THROW(handler_.performOperation("setMode", {}), std::invalid_argument);
}

TEST_F(FilesHandlerTest, OnlyReadingIsForViewers) {
  for (const auto& operation : handler_.operations()) {
    EXPECT_EQ(operation.changes, operation.name == "setModeBits") << operation.name;
  }
}

}  // namespace
}  // namespace paddock
