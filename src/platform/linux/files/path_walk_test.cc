#include "platform/linux/files/path_walk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>

#include "support/open_descriptors.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

// An ordinary user and another one.
constexpr uid_t kOwner = 1;
constexpr uid_t kOther = 2;

class PathWalk : public ::testing::Test {
 protected:
  struct Found {
    int error = 0;
    ino_t inode = 0;
    std::optional<RefusedLink> refused;
  };

  Found hold(const std::string& path, PathUse use = PathUse::changing) const {
    Found found;
    FileDescriptor object;
    found.error = holdObject(path, use, object, &found.refused);
    struct stat status {};
    EXPECT_EQ(found.error == 0, object.get() >= 0);
    if (object) {
      EXPECT_EQ(::fstat(object.get(), &status), 0);
    }
    found.inode = status.st_ino;
    return found;
  }
  int errorOf(const std::string& path, PathUse use = PathUse::changing) const {
    return hold(path, use).error;
  }
  std::string path(const std::string& name) const { return folder_.path(name); }
  std::string makeFolder(const std::string& name) const {
    EXPECT_EQ(::mkdir(path(name).c_str(), 0755), 0) << name;
    return path(name);
  }
  std::string makeLink(const std::string& name, const std::string& target) const {
    EXPECT_EQ(::symlink(target.c_str(), path(name).c_str()), 0) << name;
    return path(name);
  }
  static void give(const std::string& path, uid_t owner = kOwner) {
    ASSERT_EQ(::lchown(path.c_str(), owner, owner), 0) << path;
  }
  static ino_t inodeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_ino;
  }

  TestFolder folder_;
};

TEST_F(PathWalk, FindsWhatTheKernelFinds) {
  makeFolder("a");
  makeFolder("a/b");
  writeWholeFile(path("a/file"), "");
  makeLink("link", "a/b");
  makeLink("absolute", path("a"));
  for (const std::string& found :
       {path("a"), path("a/b/"), path("a//b"), path("a/./b"), path("a/b/.."), path("link"),
        path("link/"), path("link/.."), path("absolute/b"), path("a/file"), std::string("/"),
        std::string("/.."), std::string("//"), path("link/../../absolute/b/.")}) {
    for (const PathUse use : {PathUse::reading, PathUse::changing}) {
      EXPECT_EQ(hold(found, use).inode, inodeOf(found)) << found;
    }
  }
}

TEST_F(PathWalk, FailsAsTheKernelFails) {
  writeWholeFile(path("file"), "");
  makeLink("broken", "missing");
  makeLink("one", "other");
  makeLink("other", "one");
  makeLink("toFile", "file");
  for (const std::string& wrong :
       {path("missing"), path("missing/a"), path("file/"), path("file/."), path("file/.."),
        path("file/a"), path("broken"), path("broken/a"), path("one"), path("one/a"),
        path("toFile/"), path(std::string(300, 'n')), "/" + std::string(PATH_MAX, 'n'),
        std::string()}) {
    const int error = ::open(wrong.c_str(), O_PATH | O_CLOEXEC) < 0 ? errno : 0;
    ASSERT_NE(error, 0) << wrong;
    EXPECT_EQ(errorOf(wrong, PathUse::reading), error) << wrong;
    EXPECT_EQ(errorOf(wrong), error) << wrong;
  }
  EXPECT_EQ(errorOf(path("file") + std::string("\0x", 2)), ENOENT);
}

TEST_F(PathWalk, ARelativePathBeginsAtTheWorkingFolder) {
  EXPECT_EQ(hold(".").inode, inodeOf("."));
  EXPECT_EQ(hold("..").inode, inodeOf(".."));
}

TEST_F(PathWalk, FortyLinksAreFollowedAndNoMore) {
  makeFolder("end");
  std::string target = "end";
  for (int number = 1; number <= 41; ++number) {
    makeLink("link" + std::to_string(number), target);
    target = "link" + std::to_string(number);
  }
  EXPECT_EQ(errorOf(path("link40")), 0);
  EXPECT_EQ(errorOf(path("link41")), ELOOP);
  // Also when they stand one behind another.
  makeLink("end/self", ".");
  std::string long_ = path("end");
  for (int number = 0; number < 40; ++number) long_ += "/self";
  EXPECT_EQ(errorOf(long_), 0);
  EXPECT_EQ(errorOf(long_ + "/self"), ELOOP);
}

TEST_F(PathWalk, ProcLinksToObjectsAreRefused) {
  const FileDescriptor folder(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::string self = "/proc/" + std::to_string(::getpid());
  for (const std::string& magic :
       {std::string("/proc/self/root"), std::string("/proc/self/cwd"), self + "/root/etc",
        "/proc/self/fd/" + std::to_string(folder.get()), std::string("/proc/thread-self/root"),
        std::string("/proc/self/exe"), std::string("/proc/self/ns/mnt"),
        "/dev/fd/" + std::to_string(folder.get()), makeLink("link", "/proc/self/root/etc")}) {
    for (const PathUse use : {PathUse::reading, PathUse::changing}) {
      const Found found = hold(magic, use);
      EXPECT_EQ(found.error, EACCES) << magic;
      ASSERT_TRUE(found.refused) << magic;
      EXPECT_TRUE(found.refused->leadsToObject) << magic;
    }
  }
  EXPECT_EQ(errorOf("/proc/self/status"), 0) << "a link of /proc that is a path";
  EXPECT_EQ(errorOf("/proc/mounts"), 0);
}

TEST_F(PathWalk, WhoseLinkItIsDecidesWhatIsChanged) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving links to other users needs root";
  makeFolder("roots");
  give(makeFolder("owners"));
  give(makeFolder("others"), kOther);
  makeFolder("owners/inside");
  for (const char* target : {"roots", "owners", "others", "owners/inside"}) {
    const std::string link = makeLink("link", target);
    give(link);
    const bool counts = std::string(target) == "owners";
    const Found found = hold(link);
    EXPECT_EQ(found.error, counts ? 0 : EACCES) << target;
    if (!counts) {
      EXPECT_EQ(found.refused, (RefusedLink{link, target, kOwner, {}, false}));
    }
    EXPECT_EQ(hold(link, PathUse::reading).inode, inodeOf(path(target))) << "reading";
    ASSERT_EQ(::unlink(link.c_str()), 0);
  }
}

TEST_F(PathWalk, RefusedSymlinkIsNamedAsReached) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving links to other users needs root";
  makeFolder("a");
  makeFolder("a/b");
  makeLink("first", "a/second");
  give(makeLink("a/second", "b"));
  const Found found = hold(path("first/inside"));
  EXPECT_EQ(found.error, EACCES);
  ASSERT_TRUE(found.refused);
  EXPECT_EQ(found.refused->path, path("a/second"));
  EXPECT_EQ(found.refused->target, "b");
}

TEST_F(PathWalk, WalksLeaveNoDescriptorsOpen) {
  makeFolder("a");
  makeLink("link", "a");
  makeLink("circle", "circle");
  const LeftOpen left;
  for (const char* name : {"a", "link", "link/missing", "circle"}) (void)errorOf(path(name));
  (void)errorOf("/proc/self/root");
  EXPECT_TRUE(left.numbers().empty());
}

// Puts a folder and a link of the same owner in each other's place, again and again.
class Swapper {
 public:
  Swapper(std::string one, std::string other)
      : thread_([this, one = std::move(one), other = std::move(other)] {
          while (!stop_) {
            ::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
          }
        }) {}
  Swapper(const Swapper&) = delete;
  Swapper& operator=(const Swapper&) = delete;
  ~Swapper() {
    stop_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

TEST_F(PathWalk, SwappedComponentDoesNotRedirectWalk) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving links to other users needs root";
  constexpr int kMostWalks = 200'000;
  constexpr int kEach = 500;
  makeFolder("roots");
  makeFolder("roots/x");
  give(makeFolder("owners"));
  makeFolder("owners/x");
  give(makeLink("swapped", "roots"));
  const ino_t wrong = inodeOf(path("roots/x"));
  const ino_t right = inodeOf(path("owners/x"));
  int refusals = 0;
  int walks = 0;
  int found = 0;
  const Swapper swapper(path("owners"), path("swapped"));
  for (; walks < kMostWalks && (refusals < kEach || found < kEach); ++walks) {
    FileDescriptor object;
    std::optional<RefusedLink> refused;
    const int error = holdObject(path("swapped/x"), PathUse::changing, object, &refused);
    struct stat status {};
    if (error == 0) {
      ASSERT_EQ(::fstat(object.get(), &status), 0);
    }
    ASSERT_NE(status.st_ino, wrong) << "in walk " << walks;
    // Between the two openings of one component the other of the two may have come: a link is then
    // met as what is no folder, or the folder as what is no link.
    ASSERT_TRUE(error == 0 || error == EACCES) << error;
    refusals += error == EACCES ? 1 : 0;
    found += error == 0 && status.st_ino == right ? 1 : 0;
  }
  EXPECT_GE(refusals, kEach) << "of " << walks;
  EXPECT_GE(found, kEach) << "of " << walks;
}

}  // namespace
}  // namespace paddock
