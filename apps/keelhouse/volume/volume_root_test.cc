#include "keelhouse/volume/volume_root.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "keelhouse/core/failure.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

TEST(VolumeRoot, isTheFolderOnWhichTheVolumeIsMounted) {
  EXPECT_EQ(volumeRootOf("/"), "/");
  EXPECT_EQ(volumeRootOf("/proc"), "/proc");
  EXPECT_EQ(volumeRootOf("/proc/self/fd"), "/proc");
}

TEST(VolumeRoot, isFoundThroughLinks) {
  const TestFolder folder;
  std::filesystem::create_symlink("/proc/version", folder.path("link"));
  EXPECT_EQ(volumeRootOf(folder.path("link")), "/proc");
}

TEST(VolumeRoot, isRequired) {
  const TestFolder folder;
  std::filesystem::create_symlink("/proc", folder.path("proc"));
  requireVolumeRoot("/");
  requireVolumeRoot("/proc");
  requireVolumeRoot(folder.path("proc"));
  EXPECT_THROW(requireVolumeRoot("/proc/self"), Failure);
}

TEST(VolumeRoot, cannotBeFoundForWhatIsNotThere) {
  const TestFolder folder;
  EXPECT_THROW(volumeRootOf(folder.path("none")), Failure);
  EXPECT_THROW(requireVolumeRoot(folder.path("none")), Failure);
}

TEST(VolumeRoot, isAlsoThatOfAFolderMountedElsewhere) {
  if (const std::string reason = whyNoOwnMounts(); !reason.empty()) GTEST_SKIP() << reason;
  runInOwnMounts([] {
    const TestFolder folder;
    for (const char* name : {"a", "b", "a/inside"}) {
      std::filesystem::create_directory(folder.path(name));
    }
    bindMount(folder.path("a"), folder.path("b"));
    EXPECT_EQ(volumeRootOf(folder.path("b/inside")),
              std::filesystem::canonical(folder.path("b")).string());
    ::umount(folder.path("b").c_str());
  });
}

}  // namespace
}  // namespace paddock::keelhouse
