#include "paddock_files/files_handler.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <utility>

#include "base/guid.h"
#include "base/status.h"
#include "platform/linux/accounts/linux_membership.h"
#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/files/file_object.h"
#include "support/nt_acl_samples.h"
#include "support/plugin_host.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

class FilesHandler : public ::testing::Test {
 protected:
  FilesHandler() {
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

  PluginHost host_;
  TestFolder folder_;
  const std::string file_ = folder_.path("file");
  FilesRequestHandler handler_;
};

TEST_F(FilesHandler, TellsAllFourDigitsAndTheIds) {
  ASSERT_EQ(::chmod(folder_.path().c_str(), 03051), 0);
  EXPECT_EQ(
      call("getMode", folder_.path()),
      (Dictionary{{"mode", "3051"}, {"uid", ::geteuid()}, {"gid", ::getegid()}, {"status", 0}}));
  ASSERT_EQ(::chmod(file_.c_str(), 0007), 0);
  EXPECT_EQ(*call("getMode", file_).string("mode"), "0007");
}

TEST_F(FilesHandler, GroupDigitShowsOwningGroupInsteadOfMask) {
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

TEST_F(FilesHandler, SettingFolderBitsKeepsOtherModeBits) {
  for (const char* bits : {"2", "7", "1", "0"}) {
    EXPECT_EQ(*call("setModeBits", folder_.path(), bits).string("mode"), std::string(bits) + "750");
    EXPECT_EQ(modeOf(folder_.path()) >> 9U, static_cast<mode_t>(bits[0] - '0'));
  }
}

// A list as a client's is stored, with the hash of a mode that the folder has no more then.
TEST_F(FilesHandler, SettingModeBitsRefreshesStoredList) {
  constexpr const char* kAttribute = "security.NTACL";
  FileDescriptor object;
  ASSERT_EQ(openObject(folder_.path(), object), 0);
  const std::string made = nt_acl::samples::madeBySamba(4);
  const int error = linuxExtendedAttributes().set(object.get(), kAttribute, made);
  if (error == EPERM || error == EOPNOTSUPP)
    GTEST_SKIP() << "the file system of the temporary folder takes no lists from this user";
  ASSERT_EQ(error, 0);
  EXPECT_EQ(*call("setModeBits", folder_.path(), "2").integer("status"), 0);
  std::string stored;
  ASSERT_EQ(linuxExtendedAttributes().get(object.get(), kAttribute, stored), 0);
  EXPECT_NE(stored, made);
  EXPECT_EQ(stored.front(), 1) << "the version that has no hash";
}

TEST_F(FilesHandler, AFileGetsNone) {
  const mode_t before = modeOf(file_);
  expectError(call("setModeBits", file_, "4"), ENOTDIR);
  expectError(call("setModeBits", file_, "0"), ENOTDIR);
  EXPECT_EQ(modeOf(file_), before);
}

TEST_F(FilesHandler, MissingFileOrInvalidArgumentIsAnError) {
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

TEST_F(FilesHandler, OnlyReadingIsForViewers) {
  for (const auto& operation : handler_.operations()) {
    EXPECT_EQ(operation.changes, !operation.name.starts_with("get")) << operation.name;
  }
}

// Lists in the attribute of the Samba server.
class FilesHandlerLists : public FilesHandler {
 protected:
  void SetUp() override {
    if (::setxattr(file_.c_str(), kAttribute, "probe", 5, 0) != 0)
      GTEST_SKIP() << kAttribute << " cannot be written here: " << std::strerror(errno);
    ::removexattr(file_.c_str(), kAttribute);
  }
  Dictionary stateOf(const std::string& path) { return call("getList", path); }
  static Dictionary state(bool present, bool complete) {
    return {{"present", present}, {"complete", complete}, {"status", 0}};
  }
  const FileAcls& acls() { return privileges_.fileAcls(); }
  // Gives the path a list of one entry, which is not complete.
  void writeList(const std::string& path) {
    acl::List list;
    auto entry = std::make_unique<acl::Entry>();
    entry->tag = acl::kExtendedAllow;
    entry->qualifier = computedGuid({PrincipalType::user, 65534});
    entry->permset.permissions = acl::kReadData;
    list.entries.push_back(std::move(entry));
    FileDescriptor object;
    ASSERT_EQ(openObject(path, object), 0);
    ASSERT_EQ(acls().writeTo(object.get(), list), 0);
  }

  static constexpr const char* kAttribute = "security.NTACL";
  LinuxDirectoryService directory_{configuredDirectory({}, host_.root())};
  LinuxMembership membership_{directory_};
  FilePrivileges privileges_{configuredPrivileges({}, host_.root()), directory_, membership_,
                             nullptr};
};

TEST_F(FilesHandlerLists, ReportsPresenceAndCompleteness) {
  EXPECT_EQ(stateOf(file_), state(false, false));
  writeList(file_);
  EXPECT_EQ(stateOf(file_), state(true, false));
  EXPECT_EQ(call("makeComplete", file_), state(true, true));
  EXPECT_EQ(stateOf(file_), state(true, true));
  ASSERT_EQ(::setxattr(file_.c_str(), kAttribute, "probe", 5, 0), 0);
  expectError(stateOf(file_), EINVAL);
}

TEST_F(FilesHandlerLists, MakesAListThatLetsNobodyIn) {
  EXPECT_EQ(call("makeComplete", file_), state(true, true)) << "where there was none";
  writeList(folder_.path());
  EXPECT_EQ(handler_.performOperation("makeComplete", {{"path", folder_.path()}, {"empty", true}}),
            state(true, true));
  for (const std::string& path : {file_, folder_.path()}) {
    FileDescriptor object;
    ASSERT_EQ(openObject(path, object), 0);
    std::unique_ptr<acl::List> list;
    ASSERT_EQ(acls().readFrom(object.get(), list), 0);
    EXPECT_TRUE(list->entries.empty());
    EXPECT_EQ(list->complete, true);
  }
}

// Simulates a concurrent change of the value after a number of reads.
class OvertakenXattrs final : public ExtendedAttributes {
 public:
  int get(int object, const std::string& name, std::string& value) const override {
    const int error = linuxExtendedAttributes().get(object, name, value);
    if (name == "security.NTACL" && left_ > 0) {
      --left_;
      change_();
    }
    return error;
  }
  int set(int object, const std::string& name, std::string_view value) const override {
    return linuxExtendedAttributes().set(object, name, value);
  }
  int remove(int object, const std::string& name) const override {
    return linuxExtendedAttributes().remove(object, name);
  }
  void changeAfterReads(int count, std::function<void()> change) {
    left_ = count;
    change_ = std::move(change);
  }

 private:
  mutable int left_ = 0;
  std::function<void()> change_;
};

TEST_F(FilesHandlerLists, EntriesThatComeBetweenAreKept) {
  OvertakenXattrs attributes;
  FilesRequestHandler handler(attributes);
  for (const std::string& path : {file_, folder_.path()}) {
    attributes.changeAfterReads(1, [&] { writeList(path); });
    EXPECT_EQ(handler.performOperation("makeComplete", {{"path", path}}), state(true, true));
    FileDescriptor object;
    ASSERT_EQ(openObject(path, object), 0);
    std::unique_ptr<acl::List> list;
    ASSERT_EQ(acls().readFrom(object.get(), list), 0);
    EXPECT_EQ(list->entries.size(), 1U) << path;
  }
}

TEST_F(FilesHandlerLists, AModeThatComesBetweenStays) {
  OvertakenXattrs attributes;
  FilesRequestHandler handler(attributes);
  writeList(file_);
  attributes.changeAfterReads(1, [&] { ::chmod(file_.c_str(), 0601); });
  EXPECT_EQ(handler.performOperation("makeComplete", {{"path", file_}}), state(true, true));
  EXPECT_EQ(*call("getMode", file_).string("mode"), "0601");
}

TEST_F(FilesHandlerLists, EntriesAddedBeforeEmptyingAreKept) {
  OvertakenXattrs attributes;
  FilesRequestHandler handler(attributes);
  attributes.changeAfterReads(1, [&] { writeList(file_); });
  expectError(handler.performOperation("makeComplete", {{"path", file_}, {"empty", true}}), EAGAIN);
  EXPECT_EQ(stateOf(file_), state(true, false));
}

TEST_F(FilesHandlerLists, ConstantlyChangingListIsLeftAlone) {
  OvertakenXattrs attributes;
  FilesRequestHandler handler(attributes);
  mode_t mode = 0600;
  attributes.changeAfterReads(1000, [&] { ::chmod(file_.c_str(), mode ^= 0040U); });
  expectError(handler.performOperation("makeComplete", {{"path", file_}}), EAGAIN);
  EXPECT_EQ(stateOf(file_), state(false, false));
}

TEST_F(FilesHandler, ListOfMissingFileOrInvalidArgumentFails) {
  for (const char* operation : {"getList", "makeComplete"}) {
    expectError(call(operation, folder_.path("none")), ENOENT);
    expectError(call(operation, "relative"), EINVAL);
    expectError(handler_.performOperation(operation, {}), EINVAL);
  }
  expectError(handler_.performOperation("makeComplete", {{"path", file_}, {"empty", Array{}}}),
              EINVAL);
}

}  // namespace
}  // namespace paddock
