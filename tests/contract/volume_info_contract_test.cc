// What volume_info.h promises.
#include <gmock/gmock.h>

#include <cerrno>
#include <memory>

#include "platform/linux/files/linux_volume_info.h"
#include "platform/testing/fake_volume_info.h"

namespace paddock::contract {
namespace {

using ::testing::Contains;

constexpr const char* kMissing = "/nonexistent-folder/of-a-test";

class VolumeInfoContract : public ::testing::TestWithParam<bool> {
 protected:
  VolumeInfoContract() {
    if (GetParam()) {
      volumeInfo_ = std::make_unique<LinuxVolumeInfo>();
      return;
    }
    auto fake = std::make_unique<FakeVolumeInfo>();
    fake->mount({"/proc", "proc", "proc"});
    fake->setError(kMissing, ENOENT);
    fake->setError("nonexistent-file-of-a-test", ENOENT);
    volumeInfo_ = std::move(fake);
  }
  int statfs(const std::string& path) { return volumeInfo_->statfs(path, volume_); }

  std::unique_ptr<VolumeInfo> volumeInfo_;
  MountedVolume volume_{"x", "y", "z"};
};

INSTANTIATE_TEST_SUITE_P(VolumeInfo, VolumeInfoContract, ::testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Linux" : "Fake"; });

TEST_P(VolumeInfoContract, FindsTheVolumeOfAPath) {
  EXPECT_EQ(statfs("/proc/self"), 0);
  EXPECT_EQ(volume_, (MountedVolume{"/proc", "proc", "proc"}));
  EXPECT_EQ(statfs("/"), 0);
  EXPECT_EQ(volume_.f_mntonname, "/");
  EXPECT_NE(volume_.f_fstypename, "");
}

TEST_P(VolumeInfoContract, ARepeatedOrFinalSlashMakesNoDifference) {
  EXPECT_EQ(statfs("//proc/"), 0);
  EXPECT_EQ(volume_.f_mntonname, "/proc");
}

TEST_P(VolumeInfoContract, APathWithANulNamesNoVolume) {
  EXPECT_EQ(statfs(std::string("/proc\0x", 7)), EINVAL);
  EXPECT_EQ(volume_, MountedVolume());
}

TEST_P(VolumeInfoContract, AnEmptyPathIsMissing) {
  EXPECT_EQ(statfs(""), ENOENT);
  EXPECT_EQ(volume_, MountedVolume());
}

TEST_P(VolumeInfoContract, TwoDotsLeadWhereTheKernelGoes) {
  EXPECT_EQ(statfs("/proc/.."), 0);
  EXPECT_EQ(volume_.f_mntonname, "/");
  EXPECT_EQ(statfs("/../proc/../proc/./self"), 0);
  EXPECT_EQ(volume_.f_mntonname, "/proc");
  EXPECT_EQ(statfs(kMissing), ENOENT);
  EXPECT_EQ(volume_, MountedVolume());
}

TEST_P(VolumeInfoContract, ARelativePathBeginsAtTheWorkingFolder) {
  EXPECT_EQ(statfs("."), 0);
  EXPECT_NE(volume_.f_mntonname, "");
  EXPECT_EQ(statfs("nonexistent-file-of-a-test"), ENOENT);
  EXPECT_EQ(volume_, MountedVolume());
}

TEST_P(VolumeInfoContract, DotsInNamesAreOrdinary) { EXPECT_NE(statfs("/..a/b.."), EINVAL); }

TEST_P(VolumeInfoContract, OverlongPathReturnsNameTooLong) {
  EXPECT_EQ(statfs("/" + std::string(4095, 'p')), ENAMETOOLONG);
  EXPECT_EQ(statfs("/" + std::string(5000, 'p')), ENAMETOOLONG);
}

TEST_P(VolumeInfoContract, AMissingPathHasNoVolume) {
  EXPECT_EQ(statfs(kMissing), ENOENT);
  EXPECT_EQ(volume_, MountedVolume());
}

TEST_P(VolumeInfoContract, SaysHowLargeAVolumeIs) {
  VolumeStatistics statistics;
  EXPECT_EQ(volumeInfo_->statistics("/", statistics), 0);
  EXPECT_NE(statistics.family, "");
  EXPECT_GT(statistics.f_bsize, 0U);
  EXPECT_GT(statistics.f_blocks, 0U);
  EXPECT_LE(statistics.f_bavail, statistics.f_blocks);
}

TEST_P(VolumeInfoContract, ATypeOfNoFamilyIsItsOwn) {
  VolumeStatistics statistics;
  EXPECT_EQ(volumeInfo_->statistics("/proc/self", statistics), 0);
  EXPECT_EQ(statistics.family, "proc");
}

TEST_P(VolumeInfoContract, WhatHasNoVolumeHasNoStatistics) {
  for (const auto& [path, error] :
       {std::pair(std::string(kMissing), ENOENT), std::pair(std::string(), ENOENT),
        std::pair(std::string("/proc\0x", 7), EINVAL),
        std::pair("/" + std::string(5000, 'p'), ENAMETOOLONG)}) {
    VolumeStatistics statistics{"x", 1, 2, 3};
    EXPECT_EQ(volumeInfo_->statistics(path, statistics), error) << path;
    EXPECT_EQ(statistics, VolumeStatistics());
  }
}

TEST_P(VolumeInfoContract, ListsAllVolumes) {
  std::vector<MountedVolume> volumes{{"x", "y", "z"}};
  EXPECT_EQ(volumeInfo_->getmntinfo(volumes), 0);
  EXPECT_THAT(volumes, Contains(MountedVolume{"/proc", "proc", "proc"}));
  EXPECT_THAT(volumes, ::testing::Not(Contains(MountedVolume{"x", "y", "z"})));
}

}  // namespace
}  // namespace paddock::contract
