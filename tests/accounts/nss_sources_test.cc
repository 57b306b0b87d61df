// Sources of the name service switch, asked through a module of the test's own and through one of
// Debian's.
#include "platform/linux/accounts/nss_sources.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "accounts/nss_module.h"
#include "platform/testing/fake_machine_information.h"
#include "support/extra_users_world.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(ConfiguredNssSources, AreTheWordsOfTheDatabase) {
  const char* configuration =
      "# comment\npasswd:\tfiles  systemd sss # winbind\ngroup: files ldap\nshadow:files\n";
  EXPECT_THAT(nssSourcesIn(configuration, "passwd"), ElementsAre("systemd", "sss"));
  EXPECT_THAT(nssSourcesIn(configuration, "group"), ElementsAre("ldap"));
  EXPECT_THAT(nssSourcesIn(configuration, "shadow"), IsEmpty());
  EXPECT_THAT(nssSourcesIn(configuration, "hosts"), IsEmpty());
}

TEST(ConfiguredNssSources, ExcludeFilesAndExtraUsers) {
  EXPECT_THAT(nssSourcesIn("passwd: files extrausers sss", "passwd"), ElementsAre("sss"));
}

TEST(ConfiguredNssSources, ActionsAreNoSources) {
  EXPECT_THAT(nssSourcesIn("passwd: files [NOTFOUND=return] sss[!UNAVAIL=return]ldap [", "passwd"),
              ElementsAre("sss", "ldap"));
}

TEST(ConfiguredNssSources, EachIsThereOnce) {
  EXPECT_THAT(nssSourcesIn("passwd: sss ldap sss\npasswd: ldap db", "passwd"),
              ElementsAre("sss", "ldap", "db"));
}

TEST(ConfiguredNssSources, ANameThatLeadsElsewhereIsNone) {
  EXPECT_THAT(nssSourcesIn("passwd: ../../tmp/x a/b c.d e", "passwd"), ElementsAre("e"));
}

TEST(ConfiguredNssSources, LinesThatAreNoneAreNone) {
  for (const char* text : {"", "\n", "passwd", "passwd:", ":", "xpasswd: sss", "passwd x: sss"})
    EXPECT_THAT(nssSourcesIn(text, "passwd"), IsEmpty()) << text;
}

class NssSourceQueries : public ::testing::Test {
 protected:
  NssSourceQueries() {
    void* handle = ::dlopen(NSS_MODULE, RTLD_NOW);
    EXPECT_NE(handle, nullptr) << ::dlerror();
    void* address = ::dlsym(handle, "paddocktestControl");
    PaddocktestControl* control = nullptr;
    std::memcpy(&control, &address, sizeof control);
    control_ = control();
    *control_ = {};
    configure("passwd: files paddocktest\ngroup: files paddocktest\n");
  }

  void configure(const std::string& text) {
    writeWholeFile(folder_.path("nsswitch.conf"), text);
    sources_.readConfiguration();
  }
  int questions() const { return control_->questions; }

  TestFolder folder_;
  FakeClock clock_;
  NssSources sources_{
      clock_,
      {.configurationPath = folder_.path("nsswitch.conf"),
       .moduleFolder = std::filesystem::path(NSS_MODULE).parent_path().string() + "/"}};
  NssModuleControl* control_ = nullptr;
};

TEST_F(NssSourceQueries, KnowNamesAndIds) {
  for (const auto type : {PrincipalType::user, PrincipalType::group}) {
    EXPECT_EQ(sources_.idOf(type, "known"), 7000U);
    EXPECT_EQ(sources_.idOf(type, "unknown"), std::nullopt);
    EXPECT_TRUE(sources_.has({type, 7000}));
    EXPECT_FALSE(sources_.has({type, 7002}));
  }
}

TEST_F(NssSourceQueries, AnEntryMayBeLarge) {
  EXPECT_EQ(sources_.idOf(PrincipalType::user, "large"), 7001U);
  EXPECT_TRUE(sources_.has({PrincipalType::group, 7001}));
}

TEST_F(NssSourceQueries, OneDatabasesSourcesAreNotQueriedForAnother) {
  configure("passwd: files\ngroup: files paddocktest\n");
  EXPECT_EQ(sources_.idOf(PrincipalType::user, "known"), std::nullopt);
  EXPECT_EQ(questions(), 0);
  EXPECT_EQ(sources_.idOf(PrincipalType::group, "known"), 7000U);
}

TEST_F(NssSourceQueries, AnswersAreKeptForAnHour) {
  for (int again = 0; again < 3; ++again) {
    EXPECT_EQ(sources_.idOf(PrincipalType::user, "known"), 7000U);
    EXPECT_EQ(sources_.idOf(PrincipalType::user, "unknown"), std::nullopt);
  }
  EXPECT_EQ(questions(), 2);
  clock_.advance(NssSources::kLifetime);
  EXPECT_EQ(sources_.idOf(PrincipalType::user, "known"), 7000U);
  EXPECT_EQ(questions(), 3);
}

TEST_F(NssSourceQueries, NameAndIdOfSameDigitsAreDistinct) {
  EXPECT_TRUE(sources_.has({PrincipalType::user, 7000}));
  EXPECT_EQ(sources_.idOf(PrincipalType::user, "7000"), std::nullopt);
}

TEST_F(NssSourceQueries, UnavailableSourceHasNoAccountsAndRests) {
  control_->isUnavailable = true;
  for (const char* name : {"known", "unknown", "another"})
    EXPECT_EQ(sources_.idOf(PrincipalType::user, name), std::nullopt);
  EXPECT_EQ(questions(), 1);
  control_->isUnavailable = false;
  clock_.advance(NssSources::kRest);
  EXPECT_EQ(sources_.idOf(PrincipalType::user, "known"), 7000U) << "that was no answer to keep";
}

TEST_F(NssSourceQueries, OneThatIsNotInstalledHasNobody) {
  configure("passwd: nosuchsource paddocktest\n");
  EXPECT_EQ(sources_.idOf(PrincipalType::user, "known"), 7000U);
  EXPECT_EQ(sources_.idOf(PrincipalType::user, "known"), 7000U);
  EXPECT_EQ(questions(), 1) << "its answer is sure";
}

TEST_F(NssSourceQueries, AConfigurationThatIsMissingNamesNone) {
  std::filesystem::remove(folder_.path("nsswitch.conf"));
  sources_.readConfiguration();
  EXPECT_EQ(sources_.idOf(PrincipalType::user, "known"), std::nullopt);
}

// With the whole: what a source has is the host's.
TEST_F(NssSourceQueries, AccountsOfSourceAreNotPublishedToHost) {
  ExtraUsersWorld world;
  writeWholeFile(world.hostPath("nsswitch.conf"),
                 "passwd: files extrausers paddocktest\ngroup: files paddocktest\n");
  LinuxDirectoryOptions options = world.directoryOptions();
  options.extraUsers->nss.moduleFolder =
      std::filesystem::path(NSS_MODULE).parent_path().string() + "/";
  LinuxDirectoryService service(options);
  ExtraUsersWorld::putUser(service, "known", "5001");
  ExtraUsersWorld::putUser(service, "bert", "7000");
  ExtraUsersWorld::putUser(service, "carl", "5003");
  EXPECT_EQ(world.contents("passwd"), ownBlock(plainUserLine("carl", "5003")));
  ASSERT_EQ(world.logger.lines().size(), 2U);
  EXPECT_THAT(world.logger.lines().front().text, HasSubstr("the host has a user of this name"));
}

TEST(DebianNssModules, TellTheirAccounts) {
  const TestFolder folder;
  writeWholeFile(folder.path("nsswitch.conf"), "passwd: compat\ngroup: compat\n");
  FakeClock clock;
  NssSources sources(clock,
                     {.configurationPath = folder.path("nsswitch.conf"), .moduleFolder = ""});
  sources.readConfiguration();
  EXPECT_EQ(sources.idOf(PrincipalType::user, "root"), 0U);
  EXPECT_EQ(sources.idOf(PrincipalType::user, "no such user here"), std::nullopt);
  EXPECT_TRUE(sources.has({PrincipalType::group, 0}));
  EXPECT_FALSE(sources.has({PrincipalType::group, 3'999'999'999}));
}

}  // namespace
}  // namespace paddock
