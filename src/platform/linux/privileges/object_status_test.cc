#include "platform/linux/privileges/object_status.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

#include "base/file_access.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

class ObjectStatusReading : public ::testing::Test {
 protected:
  ObjectStatus of(const char* name) {
    ObjectStatus status;
    EXPECT_EQ(statusOf(at_.get(), name, status), 0) << name;
    return status;
  }
  ObjectStatus placeOfName(const char* name) {
    ObjectStatus status;
    EXPECT_EQ(placeOf(at_.get(), name, status), 0) << name;
    return status;
  }

  FileDescriptor opened() const {
    return FileDescriptor(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }

  const TestFolder folder_;
  FileDescriptor at_ = opened();
};

TEST_F(ObjectStatusReading, ItIsWhatStatSays) {
  const std::string path = folder_.path("file");
  writeWholeFile(path, std::string(10000, 'x'));
  ASSERT_EQ(::chmod(path.c_str(), 04751), 0);
  ASSERT_EQ(::link(path.c_str(), folder_.path("again").c_str()), 0);
  // What is not on the disk has no blocks yet.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::fsync(file.get()), 0);
  struct stat expected {};
  ASSERT_EQ(::stat(path.c_str(), &expected), 0);
  const ObjectStatus status = of("file");
  EXPECT_EQ(status.device, std::uint64_t{major(expected.st_dev)} << 32U | minor(expected.st_dev));
  EXPECT_EQ(status.inode, expected.st_ino);
  EXPECT_EQ(status.bytes, static_cast<std::uint64_t>(expected.st_blocks) * 512);
  EXPECT_EQ(status.owner, expected.st_uid);
  EXPECT_EQ(status.group, expected.st_gid);
  EXPECT_EQ(status.links, 2U);
  EXPECT_EQ(status.type, static_cast<mode_t>(S_IFREG));
  EXPECT_EQ(status.mode, 04751U);
  EXPECT_FALSE(status.isFolder());
}

TEST_F(ObjectStatusReading, ALinkIsMeantItself) {
  ASSERT_EQ(::symlink(folder_.path().c_str(), folder_.path("link").c_str()), 0);
  EXPECT_EQ(of("link").type, static_cast<mode_t>(S_IFLNK));
  EXPECT_FALSE(of("link").isFolder());
}

TEST_F(ObjectStatusReading, OpenObjectMatchesItsName) {
  ASSERT_EQ(::mkdir(folder_.path("inside").c_str(), 0700), 0);
  const FileDescriptor inside(::openat(at_.get(), "inside", O_PATH | O_CLOEXEC));
  ObjectStatus status;
  ASSERT_EQ(statusOf(inside.get(), status), 0);
  EXPECT_TRUE(status.isSameObject(of("inside")));
  EXPECT_TRUE(status.isFolder());
  EXPECT_FALSE(status.isSameObject(of(".")));
  EXPECT_EQ(status.mount, of(".").mount);
}

TEST_F(ObjectStatusReading, WhatIsNotThereIsAnErrno) {
  ObjectStatus status;
  EXPECT_EQ(statusOf(at_.get(), "missing", status), ENOENT);
  EXPECT_EQ(placeOf(at_.get(), "missing", status), ENOENT);
  EXPECT_EQ(statusOf(-1, status), EBADF);
}

TEST_F(ObjectStatusReading, MountOfSameDeviceIsAnotherMount) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    at_ = opened();  // the one before is of the other mounts
    for (const char* name : {"plain", "bound", "memory"}) {
      ASSERT_EQ(::mkdir(folder_.path(name).c_str(), 0700), 0);
    }
    bindMount(folder_.path("plain"), folder_.path("bound"));
    mountTmpfs(folder_.path("memory"), "1m");
    const ObjectStatus here = of(".");
    if (here.mount == 0) {
      std::printf("not tested: the kernel does not say on which mount a file is\n");
      return;
    }
    EXPECT_EQ(of("plain").mount, here.mount);
    EXPECT_FALSE(of("plain").isMountRoot);
    EXPECT_TRUE(of("bound").isSameObject(of("plain")));
    for (const char* name : {"bound", "memory"}) {
      EXPECT_NE(of(name).mount, here.mount) << name;
      EXPECT_TRUE(of(name).isMountRoot) << name;
      EXPECT_EQ(placeOfName(name).mount, of(name).mount) << name;
      EXPECT_EQ(placeOfName(name).device, of(name).device) << name;
    }
    EXPECT_NE(of("memory").device, here.device);
  });
}

TEST_F(ObjectStatusReading, MessagePathsFollowMovedObject) {
  ASSERT_EQ(::mkdir(folder_.path("inside").c_str(), 0700), 0);
  const FileDescriptor inside(::openat(at_.get(), "inside", O_PATH | O_CLOEXEC));
  ASSERT_EQ(::rename(folder_.path("inside").c_str(), folder_.path("moved").c_str()), 0);
  EXPECT_EQ(pathOf(inside.get()), folder_.path("moved"));
  EXPECT_EQ(pathOf(inside.get(), "file"), folder_.path("moved/file"));
  EXPECT_EQ(pathOf(-1), "a folder");
  const FileDescriptor top(::open("/", O_PATH | O_CLOEXEC));
  EXPECT_EQ(pathOf(top.get(), "file"), "/file");
}

}  // namespace
}  // namespace paddock
