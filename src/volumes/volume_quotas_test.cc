#include "volumes/volume_quotas.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/logger.h"
#include "platform/quota_control.h"
#include "support/own_mounts.h"
#include "support/volume_fixture.h"
#include "volumes/quota_listing.h"

namespace paddock {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kOn = 0x10000;
constexpr std::uint32_t kOff = 0x20000;
constexpr std::uint32_t kState = 0x70000;

// What qfcreate and refused files leave open is closed with the test.
class VolumeQuotas : public VolumeFixture {
 protected:
  Dictionary read(Status expected = kSuccess) { return readAt(root(), expected); }
  static Dictionary readAt(const std::string& path, Status expected = kSuccess) {
    Dictionary info{{"stale", true}};
    EXPECT_EQ(get_volume_quota_info(path, info), expected);
    return info;
  }
  Status write(const Value& enabled) {
    return set_volume_quota_info(root(), Dictionary{{"isEnabled", enabled}});
  }
  static bool exists(const std::string& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
  }
  Dictionary aliceUses(std::uint64_t bytes) const {
    return {{"name", "alice"},
            {"used", bytes},
            {"free", 1000 * kBlock},
            {"limit", 0},
            {"type", kUserQuota}};
  }
  using Started = RecordingProgramRunner::Run;
  Started checker() const { return {"/sbin/quotacheck", {"-u", root()}}; }

  LeftOpen leftOpen_;
};

using ReadingVolumeQuotas = VolumeQuotas;

// With a program that brings the files up to date.
class RefreshingVolumeQuotas : public VolumeQuotas {
 protected:
  static constexpr const char* kRefresher = "/usr/sbin/quotascan";

  RefreshingVolumeQuotas() { quotas.setOn(root()); }
  Services withRefresher() {
    Services all = doubles();
    all.quotaRefresherPath = kRefresher;
    return all;
  }

  ServicesGuard guard_{withRefresher()};
};

TEST_F(RefreshingVolumeQuotas, FileIsUpdatedBeforeListing) {
  writeWholeFile(userMarker(), "");
  writeUsers({usage(1001, 5)});
  programs.setProgram(kRefresher, [&](const std::vector<std::string>&) {
    writeUsers({usage(1001, 6)});
    return ProgramOutcome{};
  });
  EXPECT_EQ(*read().array("usr"), (Array{aliceUses(6)}));
  EXPECT_THAT(programs.runs(),
              ElementsAre(RecordingProgramRunner::Run{kRefresher, {"--kernel", "-u", root()}}));
}

TEST_F(RefreshingVolumeQuotas, FailedRefreshIsLoggedAndListsExistingFile) {
  writeWholeFile(userMarker(), "");
  writeUsers({usage(1001, 5)});
  programs.setOutcome(kRefresher, {0, "", "quotascan: no room", 1});
  EXPECT_EQ(*read().array("usr"), (Array{aliceUses(5)}));
  ASSERT_EQ(logger.lines().size(), 1U);
  EXPECT_THAT(logger.lines()[0].text, testing::HasSubstr("quotascan: no room"));
}

TEST_F(RefreshingVolumeQuotas, NothingIsRefreshedWhereNothingIsListed) {
  writeUsers({usage(1001, 5)});
  EXPECT_FALSE(read().contains("usr"));
  EXPECT_THAT(programs.runs(), IsEmpty());
  writeWholeFile(userMarker(), "");
  programs.setMissing(kRefresher);
  read();
  quotas.setError(kState, ENOTSUP);
  read();
  EXPECT_THAT(programs.runs(), IsEmpty());
}

TEST_F(RefreshingVolumeQuotas, FolderOutsideVolumeRootIsNotWritten) {
  const std::string folder = path("folder");
  std::filesystem::create_directory(folder);
  quotas.setOn(folder);
  writeWholeFile(quota_file_path(folder, kQuotaOperationsName, kUserQuota), "");
  (void)readAt(folder, ENOENT);
  EXPECT_THAT(programs.runs(), IsEmpty());
}

using SwitchingVolumeQuotas = VolumeQuotas;

TEST_F(ReadingVolumeQuotas, AMissingPathIsAllThatIsSaid) {
  EXPECT_EQ(readAt(path("missing")), (Dictionary{{"quotaError", "FILE_NOT_FOUND_ERR"}}));
  EXPECT_EQ(readAt(""), (Dictionary{{"quotaError", "FILE_NOT_FOUND_ERR"}}));
  EXPECT_EQ(readAt(root() + std::string("\0x", 2)),
            (Dictionary{{"quotaError", "FILE_NOT_FOUND_ERR"}}));
  EXPECT_THAT(quotas.calls(), IsEmpty());
}

TEST_F(ReadingVolumeQuotas, AsksForTheStateOfUsersQuotas) {
  read();
  EXPECT_EQ(quotas.calls(), (std::vector<FakeQuotaControl::Call>{{root(), kState, 0, ""}}));
}

TEST_F(ReadingVolumeQuotas, WithoutMarkersOnlyTheStateIsSaid) {
  EXPECT_EQ(read(), (Dictionary{{"isEnabled", false}}));
  quotas.setOn(root());
  EXPECT_EQ(read(), (Dictionary{{"isEnabled", true}}));
}

TEST_F(ReadingVolumeQuotas, UsersAndGroupsAreListedUnderTheirMarkers) {
  quotas.setOn(root());
  writeWholeFile(userMarker(), "");
  writeUsers({usage(1001, 5)});
  EXPECT_EQ(read(), (Dictionary{{"isEnabled", true}, {"usr", Array{aliceUses(5)}}}));
  writeWholeFile(groupMarker(), "");
  writeWholeFile(groupFile(), quotaFileBytes(kGroupQuota, 4, {usage(50, 6)}));
  const Dictionary both = read();
  EXPECT_EQ(*both.array("usr"), (Array{aliceUses(5)}));
  ASSERT_NE(both.array("grp"), nullptr);
  EXPECT_EQ(*both.array("grp")->front().dictionary()->string("name"), "staff");
}

TEST_F(ReadingVolumeQuotas, QuotasThatAreOffAreListedToo) {
  writeWholeFile(userMarker(), "");
  writeUsers({usage(1001, 5)});
  EXPECT_EQ(read(), (Dictionary{{"isEnabled", false}, {"usr", Array{aliceUses(5)}}}));
}

TEST_F(ReadingVolumeQuotas, AVolumeOfAnotherTypeListsNobody) {
  remount("tmpfs");
  writeWholeFile(userMarker(), "");
  writeUsers({usage(1001, 5)});
  EXPECT_EQ(read(), (Dictionary{{"isEnabled", false}, {"usr", Array{}}}));
}

TEST_F(ReadingVolumeQuotas, UnsupportedVolumeReadsOffWithoutEntries) {
  writeWholeFile(userMarker(), "");
  writeUsers({usage(1001, 5)});
  quotas.setError(kState, ENOTSUP);
  EXPECT_EQ(read(), (Dictionary{{"isEnabled", false}}));
}

TEST_F(ReadingVolumeQuotas, AnotherErrorIsTheStatus) {
  writeWholeFile(userMarker(), "");
  writeUsers({usage(1001, 5)});
  quotas.setError(kState, EPERM);
  EXPECT_EQ(read(EPERM), (Dictionary{{"isEnabled", false}}));
  EXPECT_THAT(logger.lines(), ElementsAre(RecordingLogger::Line{
                                  kLogError, "paddock_sharing: Whether the quotas of " + root() +
                                                 " are on is not known: Operation not permitted"}));
}

TEST_F(ReadingVolumeQuotas, FailedUserListingSetsStatusAndSkipsGroups) {
  writeWholeFile(userMarker(), "");
  writeWholeFile(groupMarker(), "");
  writeWholeFile(groupFile(), quotaFileBytes(kGroupQuota, 4, {usage(50, 6)}));
  EXPECT_EQ(read(ENOENT), (Dictionary{{"isEnabled", false}}));
  writeWholeFile(userFile(), "no quota file");
  EXPECT_EQ(read(-1), (Dictionary{{"isEnabled", false}}));
}

TEST_F(ReadingVolumeQuotas, AGroupListingThatFailsLeavesTheUsers) {
  writeWholeFile(userMarker(), "");
  writeUsers({usage(1001, 5)});
  writeWholeFile(groupMarker(), "");
  EXPECT_EQ(read(ENOENT), (Dictionary{{"isEnabled", false}, {"usr", Array{aliceUses(5)}}}));
}

TEST_F(ReadingVolumeQuotas, FilePathReadsItsVolume) {
  writeWholeFile(path("file"), "");
  quotas.setOn(root());
  EXPECT_EQ(readAt(path("file")), (Dictionary{{"isEnabled", true}}));
}

TEST_F(SwitchingVolumeQuotas, WithoutIsEnabledNothingIsDone) {
  EXPECT_EQ(set_volume_quota_info(root(), {{"usr", Array{}}}), kSuccess);
  EXPECT_EQ(write(Array{}), kSuccess);
  EXPECT_THAT(quotas.calls(), IsEmpty());
  EXPECT_THAT(programs.started(), IsEmpty());
  EXPECT_TRUE(std::filesystem::is_empty(root()));
}

TEST_F(SwitchingVolumeQuotas, SwitchingOnCreatesFilesAndStartsChecker) {
  EXPECT_EQ(write(true), kSuccess);
  EXPECT_EQ(std::filesystem::file_size(userMarker()), 0U);
  EXPECT_EQ(std::filesystem::file_size(userFile()), 131'136U);
  EXPECT_FALSE(exists(groupFile()));
  EXPECT_FALSE(exists(groupMarker()));
  EXPECT_EQ(quotas.calls(), (std::vector<FakeQuotaControl::Call>{{root(), kOn, 0, userFile()}}));
  EXPECT_THAT(programs.started(), ElementsAre(checker()));
  EXPECT_TRUE(quotas.isOn(root()));
  EXPECT_THAT(leftOpen_.paths(), ElementsAre(userFile()));
}

TEST_F(SwitchingVolumeQuotas, BothFilesAreHiddenFromTheFileBrowser) {
  EXPECT_EQ(write(1), kSuccess);
  BrowserInformation hidden{};
  const std::uint16_t flags = 0x4000;
  std::memcpy(hidden.data() + 8, &flags, sizeof flags);
  for (const std::string& file : {userMarker(), userFile()}) {
    ASSERT_NE(browserInformation.find(file), nullptr) << file;
    EXPECT_EQ(*browserInformation.find(file), hidden);
  }
}

TEST_F(SwitchingVolumeQuotas, OnTwiceKeepsTheFiles) {
  EXPECT_EQ(write(true), kSuccess);
  writeUsers({usage(1001, 5, 9)});
  const std::string before = readWholeFile(userFile());
  EXPECT_EQ(write("yes"), kSuccess);
  EXPECT_EQ(readWholeFile(userFile()), before);
  EXPECT_THAT(programs.started(), ElementsAre(checker(), checker()));
}

TEST_F(SwitchingVolumeQuotas, FilesThatAreThereAreNotHiddenAgain) {
  writeWholeFile(userMarker(), "");
  writeUsers({});
  EXPECT_EQ(write(true), kSuccess);
  EXPECT_EQ(browserInformation.find(userMarker()), nullptr);
  EXPECT_EQ(browserInformation.find(userFile()), nullptr);
}

TEST_F(SwitchingVolumeQuotas, OffRemovesTheMarkerAndKeepsTheFile) {
  write(true);
  EXPECT_EQ(write(false), kSuccess);
  EXPECT_FALSE(exists(userMarker()));
  EXPECT_TRUE(exists(userFile()));
  EXPECT_FALSE(quotas.isOn(root()));
  EXPECT_EQ(quotas.calls().back(), (FakeQuotaControl::Call{root(), kOff, 0, userFile()}));
  EXPECT_EQ(programs.started().size(), 1U) << "the checker is not started when switching off";
  EXPECT_EQ(read(), (Dictionary{{"isEnabled", false}}));
}

TEST_F(SwitchingVolumeQuotas, AfterOffTheStateIsStillTheKernels) {
  write(true);
  quotas.setError(kOff, EIO);
  EXPECT_EQ(write(false), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_FALSE(exists(userMarker()));
  EXPECT_EQ(read(), (Dictionary{{"isEnabled", true}}));
}

TEST_F(SwitchingVolumeQuotas, RefusalIsLoggedWithPathAndReason) {
  quotas.setError(kOn, EPERM);
  EXPECT_EQ(write(true), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_EQ(logger.lines(),
            (std::vector<RecordingLogger::Line>{
                {kLogError, "paddock_sharing: The quotas of " + root() +
                                " were not switched on: Operation not permitted"}}));
}

TEST_F(SwitchingVolumeQuotas, RefusalKeepsFilesAndStillStartsChecker) {
  quotas.setError(kOn, ENOTSUP);
  EXPECT_EQ(write(true), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_TRUE(exists(userMarker()));
  EXPECT_TRUE(exists(userFile()));
  EXPECT_THAT(programs.started(), ElementsAre(checker()));
}

TEST_F(SwitchingVolumeQuotas, ForeignSymlinkInPathIsRefusedWithoutChanges) {
  fileAttributes.refused = RefusedLink{"/srv/link", "/etc", 1001, "alice", false};
  EXPECT_EQ(write(true), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_FALSE(exists(userMarker()));
  EXPECT_FALSE(exists(userFile()));
  EXPECT_THAT(quotas.calls(), IsEmpty());
  EXPECT_THAT(programs.started(), ElementsAre(checker()));
  ASSERT_EQ(logger.lines().size(), 1U);
  EXPECT_THAT(logger.lines().front().text,
              testing::HasSubstr("not switched on: /srv/link is a symbolic link of alice"));
  writeWholeFile(userMarker(), "");
  EXPECT_EQ(write(false), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_TRUE(exists(userMarker()));
}

TEST_F(SwitchingVolumeQuotas, ACheckerThatDoesNotStartChangesNothing) {
  programs.setStartError(ENOENT);
  EXPECT_EQ(write(true), kSuccess);
}

TEST_F(SwitchingVolumeQuotas, TheCheckerIsTheConfiguredOne) {
  Services all = doubles();
  all.quotaCheckerPath = "/usr/sbin/quotascan";
  const ServicesGuard guard(all);
  EXPECT_EQ(write(true), kSuccess);
  EXPECT_THAT(programs.started(), ElementsAre(Started{"/usr/sbin/quotascan", {"-u", root()}}));
}

TEST_F(SwitchingVolumeQuotas, FolderInsideVolumeIsRefusedAndKeepsMarker) {
  const std::string folder = path("folder");
  std::filesystem::create_directory(folder);
  EXPECT_EQ(set_volume_quota_info(folder, {{"isEnabled", true}}), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_TRUE(exists(folder + "/.quota.ops.user"));
  EXPECT_FALSE(exists(folder + "/.quota.user"));
  EXPECT_FALSE(exists(userFile()));
  EXPECT_THAT(programs.started(), ElementsAre(Started{"/sbin/quotacheck", {"-u", folder}}));
}

TEST_F(SwitchingVolumeQuotas, FileOrMissingPathIsRefusedCreatingNothing) {
  writeWholeFile(path("file"), "contents");
  volumes.setError(path("missing"), ENOENT);
  for (const char* name : {"file", "missing"}) {
    EXPECT_EQ(set_volume_quota_info(path(name), {{"isEnabled", true}}), CANNOT_SET_QUOTA_STATE_ERR);
  }
  EXPECT_EQ(readWholeFile(path("file")), "contents");
  EXPECT_FALSE(exists(path("missing")));
  EXPECT_EQ(programs.started().size(), 2U);
}

TEST_F(SwitchingVolumeQuotas, APathThatNamesNoVolumeIsRefused) {
  for (const std::string& wrong :
       {std::string(), std::string("no/such/folder"), root() + std::string("\0x", 2)}) {
    EXPECT_EQ(set_volume_quota_info(wrong, {{"isEnabled", true}}), CANNOT_SET_QUOTA_STATE_ERR);
    EXPECT_EQ(set_volume_quota_info(wrong, {{"isEnabled", false}}), CANNOT_SET_QUOTA_STATE_ERR);
  }
  EXPECT_TRUE(std::filesystem::is_empty(root()));
}

TEST_F(SwitchingVolumeQuotas, EmptyPathLeavesRootFolderUnchanged) {
  const std::string stray = "/.quota.ops.user";
  ASSERT_FALSE(exists(stray));
  EXPECT_EQ(set_volume_quota_info("", {{"isEnabled", true}}), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_FALSE(exists(stray));
}

TEST_F(SwitchingVolumeQuotas, RelativePathLeavesWorkingFolderUnchanged) {
  std::filesystem::create_directory(path("folder"));
  std::filesystem::create_directory(path("marked"));
  writeWholeFile(path("marked/.quota.ops.user"), "");
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(root());
  const Status on = set_volume_quota_info("folder", {{"isEnabled", true}});
  const Status off = set_volume_quota_info("marked", {{"isEnabled", false}});
  std::filesystem::current_path(before);
  EXPECT_EQ(on, CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_EQ(off, CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_TRUE(std::filesystem::is_empty(path("folder")));
  EXPECT_TRUE(exists(path("marked/.quota.ops.user")));
}

TEST_F(SwitchingVolumeQuotas, SymlinkMarkerIsNeitherFollowedNorRemoved) {
  writeWholeFile(path("precious"), "contents");
  std::filesystem::create_symlink("precious", userMarker());
  EXPECT_EQ(write(true), kSuccess);
  EXPECT_EQ(write(false), kSuccess);
  EXPECT_TRUE(exists(userMarker()));
  EXPECT_EQ(readWholeFile(path("precious")), "contents");
  EXPECT_EQ(browserInformation.find(path("precious")), nullptr);
}

TEST_F(SwitchingVolumeQuotas, ADanglingLinkMakesNoFileElsewhere) {
  std::filesystem::create_symlink("elsewhere", userMarker());
  std::filesystem::create_symlink("elsewhere", userFile());
  EXPECT_EQ(write(true), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_FALSE(exists(path("elsewhere")));
}

TEST_F(SwitchingVolumeQuotas, FolderMarkerKeepsItsContents) {
  std::filesystem::create_directory(userMarker());
  writeWholeFile(userMarker() + "/inside", "contents");
  EXPECT_EQ(write(true), kSuccess);
  EXPECT_EQ(write(false), kSuccess);
  EXPECT_EQ(readWholeFile(userMarker() + "/inside"), "contents");
}

TEST_F(SwitchingVolumeQuotas, AReadOnlyVolumeIsRefused) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    bindMount(root(), root());
    ASSERT_EQ(::mount("", root().c_str(), "", MS_REMOUNT | MS_BIND | MS_RDONLY, ""), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(write(true), CANNOT_SET_QUOTA_STATE_ERR);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              userFile() + ": " + std::strerror(EROFS) + "\n");
    EXPECT_TRUE(std::filesystem::is_empty(root()));
  });
}

// A volume that disappears once its state has been asked for or switched.
class VanishingVolume : public VolumeQuotas {
 protected:
  class Control : public QuotaControl {
   public:
    explicit Control(VanishingVolume& test) : test_(test) {}
    int quotactl(const std::string& path, std::uint32_t word, std::uint32_t id,
                 const QuotaArgument& argument) override {
      const int error = test_.quotas.quotactl(path, word, id, argument);
      std::filesystem::remove_all(test_.root());
      test_.volumes.unmount(test_.root());
      test_.volumes.setError(test_.root(), ENOENT);
      return error;
    }

   private:
    VanishingVolume& test_;
  };

  VanishingVolume() {
    writeWholeFile(userMarker(), "");
    writeUsers({usage(1001, 5)});
  }

  Services withVanishing() {
    Services all = doubles();
    all.quotaControl = &control_;
    return all;
  }

 private:
  Control control_{*this};
  ServicesGuard guard_{withVanishing()};
};

TEST_F(VanishingVolume, WhileItIsReadReportsMissingMarker) {
  EXPECT_EQ(read(), (Dictionary{{"isEnabled", false}}));
  EXPECT_EQ(read(), (Dictionary{{"quotaError", "FILE_NOT_FOUND_ERR"}}));
}

TEST_F(VanishingVolume, WhileItIsSwitchedLeavesNothing) {
  EXPECT_EQ(write(true), kSuccess);
  EXPECT_EQ(write(false), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_FALSE(exists(root()));
}

class HiddenFile : public VolumeQuotas {
 protected:
  HiddenFile() { writeWholeFile(path("file"), ""); }
};

TEST_F(HiddenFile, OnlyTheFlagIsAdded) {
  BrowserInformation information;
  information.fill(0x81);
  ASSERT_EQ(browserInformation.write(path("file"), information), 0);
  set_file_invisible(path("file"));
  std::uint16_t flags = 0x8181 | 0x4000;
  std::memcpy(information.data() + 8, &flags, sizeof flags);
  EXPECT_EQ(*browserInformation.find(path("file")), information);
}

TEST_F(HiddenFile, FailuresAreIgnoredAndNothingIsWritten) {
  set_file_invisible(path("missing"));
  EXPECT_EQ(browserInformation.find(path("missing")), nullptr);
}

}  // namespace
}  // namespace paddock
