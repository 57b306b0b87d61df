// When the handler advertises the backup share points, and what becomes of the advertisement.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <stdexcept>
#include <thread>

#include "platform/net_service.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/service_doubles.h"
#include "store/directory_access.h"
#include "support/handler_fixture.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNull;
using ::testing::SizeIs;

using Names = std::vector<std::string>;

constexpr const char* kSys = "sys=waMa=0,adVF=0x100";

class BackupAdvertising : public HandlerFixture {
 protected:
  BackupAdvertising() {
    setVspState("RUNNING");
    accounts.addGroup("com.veltro.access_backup", 250);
  }

  void setVspState(const char* state) {
    plugins.setPlugin("paddock_vsp", [state](const Dictionary&) {
      return Dictionary{{"state", state}};
    });
  }
  void addDestination(const std::string& name) {
    addSharePoint(name, "/srv/" + name,
                  {{schema::kBackstowBackup, "1"},
                   {schema::kVspShared, "1"},
                   {schema::kVspName, name},
                   {schema::kBackstowBackupUuid, "U"}});
  }
  Dictionary write(const std::string& path, const Dictionary& sharePoint) {
    return handler.performOperation(
        "writeSettings", {{"optionalArguments", Dictionary{{"path", path}}},
                          {"configuration", Dictionary{{"sharePointRecord", sharePoint}}}});
  }
  Names advertised() {
    const auto published = netServices.published();
    Names strings;
    if (published.empty()) return strings;
    EXPECT_THAT(published, SizeIs(1));
    EXPECT_TRUE(stringsOfTxtRecord(*published.front().txtRecord, strings));
    return strings;
  }
};

TEST_F(BackupAdvertising, FirstIdleTickAdvertisesWithHandlerAsDelegate) {
  addDestination("a");
  EXPECT_EQ(handler.doIdleAtCount(1), 0);
  EXPECT_THAT(advertised(), ElementsAre(kSys, "dk0=adVN=a,adVF=0xa1,adVU=U"));
  EXPECT_EQ(netServices.published().front().delegate, &handler);
  EXPECT_NE(handler.netService(), nullptr);
}

TEST_F(BackupAdvertising, EveryOtherTickAdvertisesNothing) {
  addDestination("a");
  readExportsFile("");
  trace.forgetCalls();
  for (const std::uint64_t count : {std::uint64_t{0}, std::uint64_t{2}, std::uint64_t{3},
                                    std::numeric_limits<std::uint64_t>::max()}) {
    EXPECT_EQ(handler.doIdleAtCount(count), 0);
  }
  EXPECT_THAT(trace.calls(), testing::Each(testing::Field(&ServiceCall::operation, "identify")))
      << "whether the exports file is the one that was read";
}

TEST_F(BackupAdvertising, ATickWithoutDestinationsMakesNoService) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(handler.doIdleAtCount(1), 0);
  EXPECT_THAT(netServices.services(), IsEmpty());
}

TEST_F(BackupAdvertising, TickReturnsZeroDespiteFailures) {
  addDestination("a");
  trace.raise("createService", std::runtime_error("no memory"), 1);
  EXPECT_EQ(handler.doIdleAtCount(1), 0);
  trace.raise("doCommand", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(handler.doIdleAtCount(1), 0);
  trace.raise("publish", 42, 1);
  EXPECT_EQ(handler.doIdleAtCount(1), 0);
  const std::string beginning = "paddock_sharing: The backup share points are not advertised: ";
  EXPECT_THAT(logger.lines(),
              ElementsAre(RecordingLogger::Line{kLogError, beginning + "no memory"},
                          RecordingLogger::Line{kLogError, beginning + "5"},
                          RecordingLogger::Line{kLogError, beginning + "an unknown exception"}));
  EXPECT_EQ(handler.doIdleAtCount(1), 0);
  EXPECT_THAT(advertised(), SizeIs(2));
}

TEST_F(BackupAdvertising, EveryCallOfATickMayFail) {
  addDestination("a");
  for (std::size_t call = 1;; ++call) {
    FaultPlan plan(call);
    const ForwardingServices faulty(services(), plan);
    const ServicesGuard guard(faulty.services());
    EXPECT_EQ(handler.doIdleAtCount(1), 0);
    handler.setNetService(nullptr);
    if (!plan.fired()) {
      EXPECT_EQ(call, 8U) << "a session, a node, a search, a state, a TXT record, a publication, "
                             "the exports file";
      break;
    }
  }
  EXPECT_THAT(netServices.published(), IsEmpty());
  EXPECT_EQ(directory.openSessions(), 0);
}

TEST_F(BackupAdvertising, HandlerDestructionEndsAdvertisementWithoutCallback) {
  addDestination("a");
  {
    SharingRequestHandler another;
    another.init();
    another.doIdleAtCount(1);
    EXPECT_THAT(netServices.published(), SizeIs(1));
    trace.forgetCalls();
  }
  EXPECT_THAT(netServices.published(), IsEmpty());
  EXPECT_EQ(trace.count("stop"), 0U) << "it is let go of, and not stopped";
}

TEST_F(BackupAdvertising, CreatingBackupSharePointAdvertisesIt) {
  tree.setFolder("/srv/a");
  write("/srv/a", {{"path", "/srv/a"},
                   {"name", "a"},
                   {"nameOverVSP", "Alpha"},
                   {"isSharedOverVSP", true},
                   {"isBackstowBackup", true}});
  EXPECT_THAT(
      advertised(),
      ElementsAre(kSys, "dk0=adVN=Alpha,adVF=0xa1,adVU=00000000-0000-4000-8000-000000000001"));
  expectLockFree();
}

TEST_F(BackupAdvertising, EveryWriteRenewsIt) {
  addDestination("a");
  handler.doIdleAtCount(1);
  write("/srv/a", {{"path", "/srv/a"}, {"nameOverVSP", "changed"}});
  EXPECT_THAT(
      advertised(),
      ElementsAre(kSys, "dk0=adVN=changed,adVF=0xa1,adVU=00000000-0000-4000-8000-000000000001"));
  addDestination("b");
  write("/srv/c", {{"path", "/srv/c"}, {"name", "c"}});
  EXPECT_THAT(advertised(), SizeIs(3)) << "what others changed is found, too";
}

TEST_F(BackupAdvertising, TheLastDestinationTakesItAlong) {
  addDestination("a");
  handler.doIdleAtCount(1);
  write("/srv/a", {{"path", "/srv/a"}, {"isBackstowBackup", false}});
  EXPECT_THAT(netServices.published(), IsEmpty());
  EXPECT_THAT(handler.netService(), IsNull());
}

TEST_F(BackupAdvertising, RemovalWithStoppedVspServiceKeepsIt) {
  addDestination("a");
  handler.doIdleAtCount(1);
  setVspState("STOPPED");
  write("/srv/a", {{"isShared", false}});
  EXPECT_THAT(sharePointNames(), IsEmpty());
  EXPECT_THAT(advertised(), SizeIs(2));
}

TEST_F(BackupAdvertising, ReadingDoesNotRenewIt) {
  addDestination("a");
  handler.performOperation("readSettings", {});
  handler.performOperation("getSharePointList", {});
  EXPECT_THAT(netServices.services(), IsEmpty());
}

TEST_F(BackupAdvertising, ConcurrentTickKeepsRecordOfLastWrite) {
  for (int round = 0; round < 20; ++round) {
    const std::string name = "n" + std::to_string(round);
    std::thread tick([this] { handler.doIdleAtCount(1); });
    write("/srv/a", {{"path", "/srv/a"},
                     {"name", "a"},
                     {"nameOverVSP", name},
                     {"isSharedOverVSP", true},
                     {"isBackstowBackup", true}});
    tick.join();
    ASSERT_THAT(advertised(), SizeIs(2)) << round;
    EXPECT_EQ(advertised()[1].rfind("dk0=adVN=" + name + ",", 0), 0U) << advertised()[1];
  }
}

}  // namespace
}  // namespace paddock
