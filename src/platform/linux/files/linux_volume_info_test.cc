#include "platform/linux/files/linux_volume_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {

namespace {

TEST(MountTableLines, ReadsMountPointDeviceAndType) {
  const MountTable table = parseMountTable(
      "36 35 98:0 / / rw,noatime master:1 shared:2 - ext4 /dev/sda1 rw,errors=continue\n"
      "37 36 0:40 / /mnt rw - nfs4 server:/export rw\n");
  EXPECT_EQ(table.volumes, (std::vector<MountedVolume>{{"/", "/dev/sda1", "ext4"},
                                                       {"/mnt", "server:/export", "nfs4"}}));
  ASSERT_NE(table.find(37), nullptr);
  EXPECT_EQ(table.find(37)->f_mntonname, "/mnt");
  EXPECT_EQ(table.find(38), nullptr);
}

TEST(MountTableLines, DecodesOctalEscapes) {
  const MountTable table =
      parseMountTable("36 35 98:0 / /a\\040b\\134c\\012d rw - fuse.x user\\043x rw\n");
  ASSERT_EQ(table.volumes.size(), 1U);
  EXPECT_EQ(table.volumes[0], (MountedVolume{"/a b\\c\nd", "user#x", "fuse.x"}));
}

TEST(MountTableLines, ADeviceMayBeEmpty) {
  const MountTable table = parseMountTable("36 35 98:0 / /a rw - tmpfs  rw\n");
  ASSERT_EQ(table.volumes.size(), 1U);
  EXPECT_EQ(table.volumes[0], (MountedVolume{"/a", "", "tmpfs"}));
}

TEST(MountTableLines, VolumesOnOneDirectoryKeepTheirOrder) {
  const MountTable table = parseMountTable(
      "36 35 98:0 / /a rw - ext4 /dev/one rw\n37 36 98:1 / /a rw - ext4 /dev/two rw\n");
  EXPECT_EQ(table.find(36)->f_mntfromname, "/dev/one");
  EXPECT_EQ(table.find(37)->f_mntfromname, "/dev/two");
}

TEST(MountTableLines, LeavesOutLinesThatAreCutShort) {
  EXPECT_TRUE(parseMountTable("36 35 98:0 / /a rw - ext4\nx 35 98:0 / /a rw - ext4 d rw\n36\n\n")
                  .volumes.empty());
}

TEST(MountTableCaching, IsReadOnceWhileNothingChanges) {
  KeptMountTable mounts;
  ASSERT_EQ(mounts.update(), 0);
  EXPECT_FALSE(mounts.table().volumes.empty());
  // Mounts elsewhere on the machine may be reported once.
  for (int call = 0; call < 100; ++call) ASSERT_EQ(mounts.update(), 0);
  EXPECT_LE(mounts.readings(), 3);
}

TEST(MountTableCaching, AMissingTableIsAnError) {
  KeptMountTable mounts("/nonexistent/mountinfo");
  EXPECT_EQ(mounts.update(), ENOENT);
  EXPECT_TRUE(mounts.table().volumes.empty());
}

using testing::Contains;

class VolumeLookup : public testing::Test {
 protected:
  std::string folder(const std::string& name) const {
    std::filesystem::create_directories(folder_.path(name));
    return folder_.path(name);
  }
  MountedVolume volumeOf(const std::string& path) {
    MountedVolume volume;
    EXPECT_EQ(volumeInfo_.statfs(path, volume), 0) << path;
    return volume;
  }
  static void mountNamed(const std::string& device, const std::string& path) {
    ASSERT_EQ(::mount(device.c_str(), path.c_str(), "tmpfs", 0, "size=64k"), 0) << path;
  }

  TestFolder folder_;
  LinuxVolumeInfo volumeInfo_;
};

TEST_F(VolumeLookup, SeesWhatIsMountedAndUnmountedMeanwhile) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    const std::string path = folder("a");
    const MountedVolume before = volumeOf(path);
    EXPECT_NE(before.f_mntonname, path);
    mountNamed("first", path);
    EXPECT_EQ(volumeOf(path), (MountedVolume{path, "first", "tmpfs"}));
    ASSERT_EQ(::umount(path.c_str()), 0);
    EXPECT_EQ(volumeOf(path), before);
  });
}

TEST_F(VolumeLookup, TwoDotsAfterSymlinkLeadAboveItsTarget) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    const std::string path = folder("a");
    mountNamed("inner", path);
    folder("a/deep");
    std::filesystem::create_symlink(path + "/deep", folder_.path("link"));
    EXPECT_EQ(volumeOf(folder_.path("link/..")), (MountedVolume{path, "inner", "tmpfs"}));
    MountedVolume volume;
    EXPECT_EQ(volumeInfo_.statfs(path + "/missing/..", volume), ENOENT);
  });
}

TEST_F(VolumeLookup, TopmostVolumeOnFolderWins) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    const std::string path = folder("a");
    mountNamed("lower", path);
    mountNamed("upper", path);
    EXPECT_EQ(volumeOf(path).f_mntfromname, "upper");
    std::vector<MountedVolume> volumes;
    ASSERT_EQ(volumeInfo_.getmntinfo(volumes), 0);
    EXPECT_THAT(volumes, Contains(MountedVolume{path, "lower", "tmpfs"}));
    EXPECT_EQ(volumes.back(), (MountedVolume{path, "upper", "tmpfs"}));
  });
}

TEST_F(VolumeLookup, BindMountedFolderLiesOnOwnMount) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    mountNamed("one", folder("a"));
    folder("a/inner");
    bindMount(folder("a/inner"), folder("b"));
    EXPECT_EQ(volumeOf(folder_.path("a/inner")).f_mntonname, folder_.path("a"));
    EXPECT_EQ(volumeOf(folder_.path("b")), (MountedVolume{folder_.path("b"), "one", "tmpfs"}));
  });
}

TEST_F(VolumeLookup, NamesWithBlanksAndBackslashesAreReadVerbatim) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    const std::string path = folder("a b\\040\n#");
    mountNamed("de vice", path);
    EXPECT_EQ(volumeOf(path), (MountedVolume{path, "de vice", "tmpfs"}));
  });
}

TEST_F(VolumeLookup, FollowsALinkAtTheEnd) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    mountNamed("one", folder("a"));
    std::filesystem::create_symlink("a", folder_.path("link"));
    EXPECT_EQ(volumeOf(folder_.path("link")).f_mntonname, folder_.path("a"));
  });
}

TEST_F(VolumeLookup, ChrootWithoutMountReportsRootAsVolume) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    const MountedVolume outside = volumeOf(folder("root"));
    bindMount("/proc", folder("root/proc"));
    ASSERT_EQ(::chroot(folder_.path("root").c_str()), 0);
    ASSERT_EQ(::chdir("/"), 0);
    LinuxVolumeInfo inside;
    MountedVolume volume;
    ASSERT_EQ(inside.statfs("/", volume), 0);
    EXPECT_EQ(volume, (MountedVolume{"/", outside.f_mntfromname, outside.f_fstypename}));
  });
}

TEST_F(VolumeLookup, TheNumbersAreThoseOfTheVolume) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    const std::string path = folder("a");
    mountNamed("one", path);
    VolumeStatistics statistics;
    ASSERT_EQ(volumeInfo_.statistics(path, statistics), 0);
    EXPECT_EQ(statistics.family, "tmpfs");
    EXPECT_EQ(statistics.f_bsize * statistics.f_blocks, 64U << 10U);
    writeWholeFile(path + "/file", std::string(16U << 10U, 'x'));
    ASSERT_EQ(volumeInfo_.statistics(path, statistics), 0);
    EXPECT_LE(statistics.f_bsize * statistics.f_bavail, 48U << 10U);
  });
}

TEST_F(VolumeLookup, TypesAreReportedUnderTheirFamily) {
  const auto family = [](const VolumeFamilies& families) {
    LinuxVolumeInfo volumeInfo(families);
    VolumeStatistics statistics;
    EXPECT_EQ(volumeInfo.statistics("/proc", statistics), 0);
    return statistics.family;
  };
  EXPECT_EQ(family({}), "proc");
  EXPECT_EQ(family({{"ext4", "proc"}, false}), "ufs");
  EXPECT_EQ(family({{}, true}), "ufs");
}

TEST_F(VolumeLookup, AnyThreadMayAsk) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&] {
      MountedVolume volume;
      for (int call = 0; call < 200; ++call) EXPECT_EQ(volumeInfo_.statfs("/proc", volume), 0);
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace

}  // namespace paddock
