#include "platform/linux/files/mount_table.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(MountTableTest, ReadsMountPointDeviceAndType) {
  const MountTable table = parseMountTable(
      "36 35 98:0 / / rw,noatime master:1 shared:2 - ext4 /dev/sda1 rw,errors=continue\n"
      "37 36 0:40 / /mnt rw - nfs4 server:/export rw\n");
  EXPECT_EQ(table.volumes, (std::vector<MountedVolume>{{"/", "/dev/sda1", "ext4"},
                                                       {"/mnt", "server:/export", "nfs4"}}));
  ASSERT_NE(table.find(37), nullptr);
  EXPECT_EQ(table.find(37)->f_mntonname, "/mnt");
  EXPECT_EQ(table.find(38), nullptr);
}

TEST(MountTableTest, DecodesOctalEscapes) {
  const MountTable table =
      parseMountTable("36 35 98:0 / /a\\040b\\134c\\012d rw - fuse.x user\\043x rw\n");
  ASSERT_EQ(table.volumes.size(), 1U);
  EXPECT_EQ(table.volumes[0], (MountedVolume{"/a b\\c\nd", "user#x", "fuse.x"}));
}

TEST(MountTableTest, ADeviceMayBeEmpty) {
  const MountTable table = parseMountTable("36 35 98:0 / /a rw - tmpfs  rw\n");
  ASSERT_EQ(table.volumes.size(), 1U);
  EXPECT_EQ(table.volumes[0], (MountedVolume{"/a", "", "tmpfs"}));
}

TEST(MountTableTest, VolumesOnOneDirectoryKeepTheirOrder) {
  const MountTable table = parseMountTable(
      "36 35 98:0 / /a rw - ext4 /dev/one rw\n37 36 98:1 / /a rw - ext4 /dev/two rw\n");
  EXPECT_EQ(table.find(36)->f_mntfromname, "/dev/one");
  EXPECT_EQ(table.find(37)->f_mntfromname, "/dev/two");
}

TEST(MountTableTest, LeavesOutLinesThatAreCutShort) {
  EXPECT_TRUE(parseMountTable("36 35 98:0 / /a rw - ext4\nx 35 98:0 / /a rw - ext4 d rw\n36\n\n")
                  .volumes.empty());
}

TEST(KeptMountTableTest, IsReadOnceWhileNothingChanges) {
  KeptMountTable mounts;
  ASSERT_EQ(mounts.update(), 0);
  EXPECT_FALSE(mounts.table().volumes.empty());
  // Mounts elsewhere on the machine may be reported once.
  for (int call = 0; call < 100; ++call) ASSERT_EQ(mounts.update(), 0);
  EXPECT_LE(mounts.readings(), 3);
}

TEST(KeptMountTableTest, AMissingTableIsAnError) {
  KeptMountTable mounts("/nonexistent/mountinfo");
  EXPECT_EQ(mounts.update(), ENOENT);
  EXPECT_TRUE(mounts.table().volumes.empty());
}

}  // namespace
}  // namespace paddock
