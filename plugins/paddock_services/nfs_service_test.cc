// The managed lines as a real exportfs reads them, with an exports file and a state folder of its
// own, and the states that follow. (tests/vm has a server in the kernel.)
#include "paddock_services/nfs_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "paddock/run_program.h"
#include "platform/linux/files/linux_text_files.h"
#include "platform/services.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using Kind = ProtocolState::Kind;
namespace fs = std::filesystem;

constexpr const char* kExportfs = "/usr/sbin/exportfs";
constexpr const char* kExportsFile = "/etc/exports";
constexpr const char* kStateFolder = "/var/lib/nfs";

std::string whyNoExportfs() {
  for (const char* needed : {kExportfs, kExportsFile, kStateFolder}) {
    if (!fs::exists(needed)) return std::string("there is no ") + needed;
  }
  return whyNoOwnMounts();
}

ProgramOutcome runOfSystem(const std::string& path, const std::vector<std::string>& words) {
  const ProgramResult result = askProgram(path, words, std::chrono::seconds(20));
  return {result.status, result.output, result.errorOutput, result.exitStatus};
}

// A tree whose kernel files say that a server runs, and shared folders beside it.
class NfsServiceState : public ::testing::Test {
 protected:
  NfsServiceState() : world_{folder_.path("tree"), {}, runOfSystem} {
    for (const char* below : {"tree/etc", "tree/proc/fs/nfsd", "tree/proc/7", "shares", "state"})
      fs::create_directories(folder_.path(below));
    writeWholeFile(world_.path("/proc/fs/nfsd/threads"), "8\n");
    writeWholeFile(world_.path("/proc/7/comm"), "rpc.mountd\n");
    services_.textFiles = &files_;
  }

  std::string share(const std::string& name) const {
    const std::string path = folder_.path("shares/" + name);
    fs::create_directories(path);
    return path;
  }
  // The exports file has these lines in its managed block, and those below it.
  void exports(const std::string& managed, const std::string& others = {}) const {
    writeWholeFile(world_.path(kExportsFile),
                   std::string(kBeginMarker) + "\n" + managed + kEndMarker + "\n" + others);
  }
  // The same for the real exportfs, which reads them. In a mount namespace of its own.
  void exportAll(const std::string& managed, const std::string& others = {}) const {
    exports(managed, others);
    bindMount(folder_.path("state"), kStateFolder);
    bindMount(world_.path(kExportsFile), kExportsFile);
    runOfSystem(kExportfs, {"-ra"});
  }
  ProtocolState stateOf(const std::string& path) {
    const ServicesGuard guard(services_);
    NfsService nfs(world_);
    return nfs.stateOf(path);
  }
  // With exportfs listing this.
  ProtocolState stateWith(const std::string& path, const std::string& listed) {
    world_.ask = [listed](const auto&, const auto&) { return ProgramOutcome{0, listed, {}, 0}; };
    return stateOf(path);
  }

  TestFolder folder_;
  AskedWorld world_;
  LinuxTextFiles files_;
  Services services_;
};

TEST_F(NfsServiceState, WhatExportfsListsIsServedWithItsOptions) {
  if (const std::string why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    const std::string path = share("plain");
    exportAll(path +
              " 127.0.0.1(rw,no_root_squash,no_subtree_check) *(no_subtree_check) "
              "192.0.2.0/24(rw,all_squash,no_subtree_check) @net(ro,no_subtree_check)\n");
    EXPECT_EQ(stateOf(path), ProtocolState::served("127.0.0.1(rw,no_root_squash), *(ro), "
                                                   "192.0.2.0/24(rw,all_squash), @net(ro)"));
  });
}

TEST_F(NfsServiceState, NamesOfHostsAreFoundUnderTheirAddresses) {
  if (const std::string why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    const std::string path = share("a b");
    exportAll(folder_.path("shares/a\\040b") + " localhost(rw,no_subtree_check)\n");
    EXPECT_EQ(stateOf(path), ProtocolState::served("localhost(rw)"));
  });
}

TEST_F(NfsServiceState, UnresolvableHostIsNotServed) {
  if (const std::string why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    const std::string path = share("plain");
    exportAll(path + " nowhere.invalid(rw,no_subtree_check) 192.0.2.1(ro,no_subtree_check)\n");
    const ProtocolState state = stateOf(path);
    EXPECT_EQ(state.kind, Kind::notServed);
    EXPECT_THAT(state.reason, AllOf(HasSubstr("the host nowhere.invalid does not resolve: "),
                                    HasSubstr("; served to 192.0.2.1(ro) alone")));
  });
}

TEST_F(NfsServiceState, ALineThatExportfsRefusesIsNotServed) {
  if (const std::string why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    const std::string path = share("plain");
    // An invalid hand-written line above it makes exportfs stop reading.
    exportAll(path + " *(rw,no_subtree_check)\n");
    writeWholeFile(world_.path(kExportsFile),
                   "/srv *(no_such_option)\n" + readWholeFile(world_.path(kExportsFile)));
    runOfSystem(kExportfs, {"-ra"});
    EXPECT_EQ(stateOf(path),
              ProtocolState::notServed("exportfs has not taken the line for *", "exportfs -ra"));
  });
}

TEST_F(NfsServiceState, ExportOutsideManagedBlockIsReportedAsSuch) {
  if (const std::string why = whyNoExportfs(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    const std::string path = share("plain");
    exportAll("", path + " 192.0.2.1(ro,no_subtree_check)\n");
    EXPECT_EQ(stateOf(path),
              ProtocolState::served("192.0.2.1(ro), exported outside the managed block"));
    EXPECT_EQ(stateOf(share("other")), ProtocolState{});
    // Of no line of any file.
    runOfSystem(kExportfs, {"-o", "rw,no_subtree_check", "192.0.2.2:" + share("other")});
    EXPECT_EQ(stateOf(share("other")),
              ProtocolState::served("192.0.2.2(rw), exported outside the managed block"));
  });
}

TEST_F(NfsServiceState, UnreadableFileLeavesExportsUnknown) {
  const std::string why = "the exports file cannot be read: it is not UTF-8";
  const std::string path = share("plain");
  exports(path + " 192.0.2.1(ro,no_subtree_check)\n", "# caf\xE9\n");
  EXPECT_EQ(stateWith(path, ""), ProtocolState::unknown(why));
  fs::remove(world_.path("/proc/fs/nfsd/threads"));
  EXPECT_EQ(stateWith(path, ""), ProtocolState::unknown(why)) << "nothing is said of the server";
  if (const std::string none = whyNoExportfs(); !none.empty()) GTEST_SKIP() << none;
  writeWholeFile(world_.path("/proc/fs/nfsd/threads"), "8\n");
  world_.ask = runOfSystem;
  runInOwnMounts([&] {
    exportAll(path + " 192.0.2.1(ro,no_subtree_check)\n", "# caf\xE9\n");
    EXPECT_EQ(stateOf(path), ProtocolState::unknown(why + "; the server has it for 192.0.2.1(ro)"));
  });
}

TEST_F(NfsServiceState, ReportsUnexportableFileSystem) {
  exports("/proc/self *(ro,no_subtree_check)\n");
  EXPECT_EQ(stateWith("/proc/self", "/proc/self *(ro)\n"),
            ProtocolState::notServed("its file system cannot be exported"));
}

TEST_F(NfsServiceState, AServerThatIsStoppedServesNothing) {
  const std::string path = share("plain");
  exports(path + " *(ro)\n");
  fs::remove(world_.path("/proc/7/comm"));
  EXPECT_EQ(stateWith(path, path + " *(ro)\n"),
            ProtocolState::notServed("rpc.mountd, which the server asks, is stopped",
                                     "systemctl restart nfs-server"));
  for (const char* threads : {"0\n", "", "x"}) {
    writeWholeFile(world_.path("/proc/fs/nfsd/threads"), threads);
    // It has cleared its table.
    EXPECT_EQ(stateWith(path, ""),
              ProtocolState::notServed("nfs-server is stopped", "systemctl start nfs-server"));
  }
}

TEST_F(NfsServiceState, SeveralReasonsAreAllSaid) {
  const std::string path = share("plain");
  exports(path + " nowhere.invalid(rw) @n(ro)\n");
  writeWholeFile(world_.path("/proc/fs/nfsd/threads"), "0\n");
  const ProtocolState state = stateWith(path, "");
  EXPECT_THAT(state.reason, AllOf(HasSubstr("nowhere.invalid does not resolve"),
                                  HasSubstr("; nfs-server is stopped")));
  EXPECT_EQ(state.advice, "systemctl start nfs-server");
}

TEST_F(NfsServiceState, SeparateTreeReturnsUnknownAndRunsNothing) {
  const std::string path = share("plain");
  exports(path + " *(ro)\n");
  fs::remove(world_.path("/proc/fs/nfsd/threads"));
  int runs = 0;
  world_.ask = [&runs](const auto&, const auto&) {
    ++runs;
    return ProgramOutcome{};
  };
  EXPECT_EQ(stateOf(path), unknownToTree(world_));
  EXPECT_EQ(runs, 0);
}

TEST_F(NfsServiceState, ASystemWithoutExportfsHasNoServer) {
  const std::string path = share("plain");
  exports(path + " *(ro)\n");
  const auto ending = [this](const ProgramOutcome& outcome) {
    world_.ask = [outcome](const auto&, const auto&) { return outcome; };
  };
  ending({ENOENT, {}, {}, 0});
  EXPECT_EQ(stateOf(path), unknownToTree(world_));
  ending({ETIMEDOUT, {}, {}, 0});
  EXPECT_EQ(stateOf(path).kind, Kind::unknown);
  ending({0, {}, {}, 1});
  EXPECT_EQ(stateOf(path).kind, Kind::unknown);
}

TEST(HostAddressLookup, AreThoseOfTheResolverWithinATime) {
  EXPECT_EQ(addressesOfHost("127.0.0.1", std::chrono::seconds(60)).addresses,
            (std::set<std::string>{"127.0.0.1"}));
  const HostAddresses none = addressesOfHost("nowhere.invalid", std::chrono::seconds(60));
  EXPECT_EQ(none.outcome, HostAddresses::Outcome::none);
  EXPECT_NE(none.reason, "");
}

TEST(HostResolution, KnowsAHostThatItResolvedOnce) {
  HostResolver hosts;
  const HostAddresses& first = hosts.of("localhost");
  EXPECT_EQ(first.outcome, HostAddresses::Outcome::found);
  EXPECT_EQ(&hosts.of("localhost"), &first);
}

TEST(HostResolution, WithoutTimeLeftNumbersAloneAreKnown) {
  HostResolver hosts(std::chrono::seconds(3), std::chrono::seconds(0));
  EXPECT_EQ(hosts.of("localhost").outcome, HostAddresses::Outcome::late);
  EXPECT_EQ(hosts.of("127.0.0.1").addresses, (std::set<std::string>{"127.0.0.1"}));
  EXPECT_EQ(hosts.of("::1").outcome, HostAddresses::Outcome::found);
}

}  // namespace
}  // namespace paddock
