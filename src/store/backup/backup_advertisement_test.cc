#include "store/backup/backup_advertisement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <thread>

#include "platform/net_service.h"
#include "store/directory_access.h"
#include "support/advertiser.h"
#include "support/module_fixture.h"

namespace paddock {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Names = std::vector<std::string>;

class BackupSharePoints : public ModuleFixture {
 protected:
  void addDestination(const std::string& name, const std::string& backup,
                      const std::string& shared) {
    addSharePoint(name, "/srv/" + name,
                  {{schema::kBackstowBackup, backup},
                   {schema::kVspShared, shared},
                   {schema::kVspName, name + " over VSP"},
                   {schema::kBackstowBackupUuid, "uuid of " + name}});
  }
  // The names over VSP.
  Names found() {
    EXPECT_EQ(get_backup_share_points(sharePoints_), 0);
    Names names;
    for (const SharePointRecord& record : sharePoints_) {
      names.push_back(record.nameOverVSP().value_or("(none)"));
    }
    return names;
  }

  std::vector<SharePointRecord> sharePoints_;
};

TEST_F(BackupSharePoints, AreMarkedVspSharesInDirectoryOrder) {
  addDestination("beta", "1", "1");
  addDestination("not marked", "0", "1");
  addDestination("not shared", "1", "0");
  addDestination("alpha", "yes", "TRUE");
  EXPECT_THAT(found(), ElementsAre("beta over VSP", "alpha over VSP"));
  EXPECT_EQ(sharePoints_.front().backstowBackupUUID(), "uuid of beta");
}

TEST_F(BackupSharePoints, UnsetOrUnrecognisedFlagIsFalse) {
  addSharePoint("a", "/srv/a", {{schema::kBackstowBackup, "1"}});
  addSharePoint("b", "/srv/b", {{schema::kVspShared, "1"}});
  addSharePoint("c", "/srv/c");
  addDestination("d", "maybe", "1");
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(BackupSharePoints, ADestinationNeedsNeitherNameNorIdentifier) {
  addSharePoint("a", "/srv/a", {{schema::kBackstowBackup, "1"}, {schema::kVspShared, "1"}});
  EXPECT_THAT(found(), ElementsAre("(none)"));
}

TEST_F(BackupSharePoints, SearchAsksLocalShareRecordsForFourAttributes) {
  addRecord(schema::kMounts, "m", {{schema::kBackstowBackup, "1"}, {schema::kVspShared, "1"}});
  directory.addNode("/LDAP/site", "ReadWrite");
  directory.addRecord("/LDAP/site", schema::kSharePoints, "l",
                      {{schema::kBackstowBackup, "1"}, {schema::kVspShared, "1"}});
  addDestination("a", "1", "1");
  trace.forgetCalls();
  EXPECT_THAT(found(), ElementsAre("a over VSP"));
  EXPECT_EQ(trace.callsOf("findRecordNames"),
            (std::vector<ServiceCall>{{"findRecordNames", kRecordsAll, schema::kSharePoints}}));
  EXPECT_FALSE(sharePoints_.front().path()) << "it was not asked for";
}

TEST_F(BackupSharePoints, ReplaceWhatTheListHeld) {
  sharePoints_.resize(3, SharePointRecord::record());
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(BackupSharePoints, FailedSearchReturnsItsStatusAndKeepsList) {
  addDestination("a", "1", "1");
  for (const char* operation : {"openLocal", "localNode", "findRecordNames"}) {
    trace.raise(operation, DirectoryError(EIO, "damaged"), 1);
    sharePoints_.assign(2, SharePointRecord::record());
    EXPECT_EQ(get_backup_share_points(sharePoints_), CANNOT_RETRIEVE_SHARE_POINTS_ERR) << operation;
    EXPECT_EQ(sharePoints_.size(), 2U);
  }
  trace.raise("findRecordNames", std::runtime_error("something else"), 1);
  EXPECT_EQ(get_backup_share_points(sharePoints_), CANNOT_RETRIEVE_SHARE_POINTS_ERR);
  EXPECT_EQ(sharePoints_.size(), 2U);
}

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsNull;
using ::testing::NotNull;
using ::testing::SizeIs;

constexpr const char* kSys = "sys=waMa=0,adVF=0x100";
// U+202E, in two parts, so that it turns no line of this file around.
const std::string kRightToLeft = std::string("\xE2\x80") + "\xAE";

class BackupAdvertisement : public ModuleFixture {
 protected:
  BackupAdvertisement() { setVspState("RUNNING"); }

  void setVspState(const Value& state) {
    plugins.setPlugin("paddock_vsp", [state](const Dictionary&) {
      Dictionary reply;
      reply.set("state", state);
      return reply;
    });
  }
  void addDestination(const std::string& name, const std::string& vspName,
                      const std::string& uuid = "U", const std::string& shared = "1") {
    addSharePoint(name, "/srv/" + name,
                  {{schema::kBackstowBackup, "1"},
                   {schema::kVspShared, shared},
                   {schema::kVspName, vspName},
                   {schema::kBackstowBackupUuid, uuid}});
  }
  void renew() { EXPECT_EQ(register_share_points_with_hailcast(owner_), 0); }
  // The strings of the one service that is advertised.
  Names advertised() {
    const auto published = netServices.published();
    EXPECT_THAT(published, SizeIs(1));
    Names strings;
    if (published.size() != 1 || !published.front().txtRecord) return strings;
    EXPECT_TRUE(stringsOfTxtRecord(*published.front().txtRecord, strings));
    return strings;
  }
  Names afterRenewal() {
    renew();
    return advertised();
  }

  Advertiser owner_;
};

TEST_F(BackupAdvertisement, IsOneServiceOwnedAndDelegatedByHandler) {
  addDestination("a", "Alpha");
  renew();
  ASSERT_THAT(netServices.services(), SizeIs(1));
  const RecordingNetServices::Service service = netServices.services().front();
  EXPECT_EQ(service.type, "_adisk._tcp");
  EXPECT_EQ(service.domain, "");
  EXPECT_EQ(service.name, "");
  EXPECT_EQ(service.port, 311);
  EXPECT_EQ(service.delegate, &owner_);
  EXPECT_TRUE(service.isPublished);
  EXPECT_THAT(owner_.netService(), NotNull());
}

TEST_F(BackupAdvertisement, NumbersDestinationsInDirectoryOrder) {
  addDestination("a", "Alpha", "11111111-AAAA");
  addDestination("b", "Beta", "22222222-BBBB");
  EXPECT_THAT(afterRenewal(), ElementsAre(kSys, "dk0=adVN=Alpha,adVF=0xa1,adVU=11111111-AAAA",
                                          "dk1=adVN=Beta,adVF=0xa1,adVU=22222222-BBBB"));
}

TEST_F(BackupAdvertisement, LeavesOutWhatIsNotSharedOverVsp) {
  addDestination("a", "Alpha", "U", "0");
  addDestination("b", "Beta");
  EXPECT_THAT(afterRenewal(), ElementsAre(kSys, "dk0=adVN=Beta,adVF=0xa1,adVU=U"));
}

TEST_F(BackupAdvertisement, ElevenDestinationsAreNumberedUpToTen) {
  for (int number = 0; number <= 10; ++number) addDestination("s" + std::to_string(number), "x");
  const Names strings = afterRenewal();
  EXPECT_THAT(strings, SizeIs(12));
  EXPECT_THAT(strings, ::testing::Contains("dk10=adVN=x,adVF=0xa1,adVU=U"));
}

TEST_F(BackupAdvertisement, ManyDestinationsFollowNumericOrder) {
  Names expected = {kSys};
  for (int number = 0; number < 120; ++number) {
    const std::string digits = std::to_string(number);
    addDestination("s" + digits, "x");
    expected.push_back("dk" + digits + "=adVN=x,adVF=0xa1,adVU=U");
  }
  EXPECT_EQ(afterRenewal(), expected);
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupAdvertisement, IsCutAt8900BytesAndLogsOmittedDestinations) {
  // "sys" has 22 bytes, a destination 27 and its name, and one more for a second digit.
  for (int number = 0; number < 38; ++number) {
    addDestination("s" + std::to_string(number), std::string(200, 'x'));
  }
  addDestination("s38", std::string(8900 - 22 - 10 * 227 - 28 * 228 - 28, 'y'));
  EXPECT_THAT(afterRenewal(), SizeIs(1 + 39));
  EXPECT_EQ(netServices.published().front().txtRecord->bytes.size(), 8900U);
  EXPECT_THAT(logger.lines(), IsEmpty());
  addDestination("s39", "Over");
  addDestination("s40", "");
  addDestination("s41", "Last");
  EXPECT_THAT(afterRenewal(), SizeIs(1 + 39));
  const std::string beginning =
      "paddock_sharing: A TXT record has 8900 bytes at the most, so that these backup share points "
      "are not advertised: ";
  EXPECT_EQ(logger.lines(),
            (std::vector<RecordingLogger::Line>{{kLogWarning, beginning + "Over, , Last"}}));
}

TEST_F(BackupAdvertisement, OneByteBeyond8900OmitsLastDestination) {
  for (int number = 0; number < 38; ++number) {
    addDestination("s" + std::to_string(number), std::string(200, 'x'));
  }
  addDestination("s38", std::string(8901 - 22 - 10 * 227 - 28 * 228 - 28, 'y'));
  EXPECT_THAT(afterRenewal(), SizeIs(1 + 38));
  EXPECT_THAT(logger.lines(), SizeIs(1));
}

TEST_F(BackupAdvertisement, UnsetNameAndIdentifierAreEmpty) {
  addSharePoint("a", "/srv/a", {{schema::kBackstowBackup, "1"}, {schema::kVspShared, "1"}});
  EXPECT_THAT(afterRenewal(), ElementsAre(kSys, "dk0=adVN=,adVF=0xa1,adVU="));
}

TEST_F(BackupAdvertisement, Entry255BytesLongFitsAndOthersKeepNumbers) {
  // dk0=adVN= and ,adVF=0xa1,adVU=U
  const std::size_t rest = 9 + 17;
  addDestination("a", std::string(254 - rest, 'a'));
  addDestination("b", std::string(255 - rest, 'b'));
  addDestination("c", std::string(256 - rest, 'c'));
  addDestination("d", "Delta");
  EXPECT_THAT(afterRenewal(),
              ElementsAre(kSys, "dk0=adVN=" + std::string(254 - rest, 'a') + ",adVF=0xa1,adVU=U",
                          "dk1=adVN=" + std::string(255 - rest, 'b') + ",adVF=0xa1,adVU=U",
                          "dk3=adVN=Delta,adVF=0xa1,adVU=U"));
  EXPECT_EQ(
      logger.lines(),
      (std::vector<RecordingLogger::Line>{
          {kLogWarning, "paddock_sharing: The backup share point " + std::string(256 - rest, 'c') +
                            " is not advertised: dk2 of its TXT record has 256 bytes, and "
                            "255 are the most"}}));
}

TEST_F(BackupAdvertisement, BytesAreCountedNotCharacters) {
  std::string emoji;
  for (int count = 0; count < 60; ++count) emoji += "\xF0\x9F\x98\x80";
  addDestination("a", emoji);
  EXPECT_THAT(afterRenewal(), ElementsAre(kSys));
  EXPECT_THAT(logger.lines(), SizeIs(1));
}

TEST_F(BackupAdvertisement, TheNumbersDigitsCountToo) {
  const std::size_t rest = 9 + 17;
  for (int number = 0; number < 10; ++number) addDestination("s" + std::to_string(number), "x");
  addDestination("long", std::string(255 - rest, 'l'));
  EXPECT_THAT(afterRenewal(), SizeIs(11));
  ASSERT_THAT(logger.lines(), SizeIs(1));
  EXPECT_THAT(logger.lines().front().text, ::testing::HasSubstr("dk10 of its TXT record has 256"));
}

TEST_F(BackupAdvertisement, HostileNamesBecomeOneStringEachByteExact) {
  const Names names = {"a\nb\r\t\x01\x7F", "\"quo'te\\",         "comma,adVU=x", "100%s%n%@",
                       "\xF0\x9F\x98\x80", kRightToLeft + "abc", "a=b",          " "};
  Names expected = {kSys};
  for (std::size_t number = 0; number < names.size(); ++number) {
    addDestination("s" + std::to_string(number), names[number]);
    expected.push_back("dk" + std::to_string(number) + "=adVN=" + names[number] +
                       ",adVF=0xa1,adVU=U");
  }
  EXPECT_EQ(afterRenewal(), expected);
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupAdvertisement, OverlongHostileNamesLogOneLineEach) {
  addDestination("a", std::string(300, '%') + "n");
  addDestination("b", std::string(300, '"'));
  addDestination("c", "Gamma");
  EXPECT_THAT(afterRenewal(), ElementsAre(kSys, "dk2=adVN=Gamma,adVF=0xa1,adVU=U"));
  ASSERT_THAT(logger.lines(), SizeIs(2));
  EXPECT_THAT(logger.lines()[0].text, ::testing::HasSubstr(std::string(300, '%') + "n is not"));
  EXPECT_THAT(logger.lines()[1].text, ::testing::HasSubstr(std::string(300, '"') + " is not"));
}

TEST_F(BackupAdvertisement, OverlongDestinationsLeaveServiceWithoutAny) {
  addDestination("a", std::string(300, 'x'));
  EXPECT_THAT(afterRenewal(), ElementsAre(kSys));
}

TEST_F(BackupAdvertisement, ReplacesTheOneBefore) {
  addDestination("a", "Alpha");
  renew();
  addDestination("b", "Beta");
  EXPECT_THAT(afterRenewal(), SizeIs(3));
  ASSERT_THAT(netServices.services(), SizeIs(2));
  EXPECT_TRUE(netServices.services().front().isGone);
}

TEST_F(BackupAdvertisement, EndsWithTheLastDestination) {
  addDestination("a", "Alpha");
  renew();
  removeRecord(schema::kSharePoints, "a");
  renew();
  EXPECT_THAT(netServices.published(), IsEmpty());
  EXPECT_THAT(owner_.netService(), IsNull());
}

TEST_F(BackupAdvertisement, OfNothingIsNotMade) {
  renew();
  EXPECT_THAT(netServices.services(), IsEmpty());
  EXPECT_THAT(owner_.netService(), IsNull());
}

TEST_F(BackupAdvertisement, StaysWhileVspServiceStopsEvenWithoutDestinations) {
  addDestination("a", "Alpha");
  renew();
  setVspState("STOPPED");
  removeRecord(schema::kSharePoints, "a");
  renew();
  EXPECT_THAT(advertised(), ElementsAre(kSys, "dk0=adVN=Alpha,adVF=0xa1,adVU=U"));
}

TEST_F(BackupAdvertisement, OnlyRunningTextMarksVspServiceRunning) {
  addDestination("a", "Alpha");
  for (const Value& state :
       {Value("running"), Value("RUNNING "), Value(""), Value(true), Value(1), Value(),
        Value(Array{"RUNNING"}), Value(Dictionary{{"state", "RUNNING"}})}) {
    setVspState(state);
    renew();
    EXPECT_THAT(netServices.services(), IsEmpty());
  }
}

TEST_F(BackupAdvertisement, MissingVspServiceKeepsAdvertisement) {
  addDestination("a", "Alpha");
  renew();
  plugins.setPlugin("paddock_vsp", [](const Dictionary&) { return Dictionary(); });
  addDestination("b", "Beta");
  renew();
  EXPECT_THAT(advertised(), SizeIs(2));
}

TEST_F(BackupAdvertisement, QueriesVspServiceStateWithoutUser) {
  renew();
  EXPECT_THAT(plugins.sent(),
              ElementsAre(RecordingPluginCommands::Sent{
                  "paddock_vsp", {{"command", "getState"}}, "paddock_vsp", std::nullopt}));
}

TEST_F(BackupAdvertisement, DestinationsThatCannotBeSearchedForEndIt) {
  addDestination("a", "Alpha");
  renew();
  trace.raise("findRecordNames", DirectoryError(EIO, "damaged"), 1);
  renew();
  EXPECT_THAT(netServices.published(), IsEmpty());
}

TEST_F(BackupAdvertisement, StepsComeInTheirOrder) {
  addDestination("a", "Alpha");
  renew();
  trace.forgetCalls();
  renew();
  EXPECT_THAT(
      trace.sequence({"findRecordNames", "doCommand", "stop", "createService", "setDelegate",
                      "setTxtRecordData", "publish"}),
      ElementsAre("findRecordNames dsRecordsAll", "doCommand paddock_vsp", "stop _adisk._tcp",
                  "createService _adisk._tcp", "setDelegate _adisk._tcp",
                  "setTxtRecordData _adisk._tcp", "publish _adisk._tcp"));
}

TEST_F(BackupAdvertisement, FailedServiceCreationThrowsAndNextRenewalSucceeds) {
  addDestination("a", "Alpha");
  trace.raise("createService", std::runtime_error("no memory"), 1);
  EXPECT_THROW(register_share_points_with_hailcast(owner_), std::runtime_error);
  EXPECT_THAT(afterRenewal(), SizeIs(2));
}

TEST_F(BackupAdvertisement, UnpublishedServiceIsReplacedByNextRenewal) {
  addDestination("a", "Alpha");
  trace.fail("publish", EIO, 1);
  renew();
  EXPECT_THAT(netServices.published(), IsEmpty());
  EXPECT_THAT(afterRenewal(), SizeIs(2));
  EXPECT_TRUE(netServices.services().front().isGone);
}

TEST_F(BackupAdvertisement, ConcurrentRenewalsLeaveOneService) {
  addDestination("a", "Alpha");
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([this] {
      for (int time = 0; time < 50; ++time) renew();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(advertised(), SizeIs(2));
  const auto made = netServices.services();
  EXPECT_EQ(made.size(), 200U);
  EXPECT_EQ(std::count_if(made.begin(), made.end(), [](const auto& one) { return !one.isGone; }),
            1);
}

TEST_F(BackupAdvertisement, RenewalWithStaleSearchDoesNotWin) {
  addDestination("a", "Alpha");
  std::thread later;
  // While the first renewal asks for the state, having searched, a second one comes.
  plugins.setPlugin("paddock_vsp", [&](const Dictionary&) {
    if (!later.joinable()) {
      addDestination("b", "Beta");
      later = std::thread([this] { renew(); });
    }
    return Dictionary{{"state", "RUNNING"}};
  });
  renew();
  later.join();
  EXPECT_THAT(advertised(), SizeIs(3));
}

}  // namespace

}  // namespace paddock
