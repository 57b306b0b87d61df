#include "keelhouse/share/share_warnings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::vector<std::string> warningsOnExport(const std::string& host, Array options) {
  const Dictionary client{{"host", host}, {"options", std::move(options)}};
  return warningsOn({{"nfsExportRecord", Dictionary{{"clients", Array{client}}}}}, {});
}

std::vector<std::string> warningsOnMode(const char* mode) {
  return warningsOn({}, {{"privs", mode}});
}

TEST(ShareWarnings, AreOfRootOfWholeNetworks) {
  for (const char* host : {"*", "10.0.0.0/8", "*.example.org", "@hosts", "node[0-9]"}) {
    EXPECT_THAT(warningsOnExport(host, {"rw", "no_root_squash"}),
                ElementsAre("no_root_squash for " + std::string(host) +
                            ": root of each of these hosts is root of what is shared here"));
  }
}

TEST(ShareWarnings, AreNotOfRootOfOneHostOrOfNobody) {
  EXPECT_THAT(warningsOnExport("host.example.org", {"no_root_squash"}), IsEmpty());
  EXPECT_THAT(warningsOnExport("10.0.0.1", {"no_root_squash"}), IsEmpty());
  EXPECT_THAT(warningsOnExport("*", {"rw"}), IsEmpty());
  EXPECT_THAT(warningsOnExport("*", {"no_root_squash", "root_squash"}), IsEmpty());
}

TEST(ShareWarnings, AreOfGuestsThatWrite) {
  EXPECT_THAT(warningsOn({{"smb", Dictionary{{"guest", true}}}}, {}),
              ElementsAre(HasSubstr("guests may write over SMB")));
  EXPECT_THAT(warningsOn({{"smb", Dictionary{{"guest", true}, {"readOnly", true}}}}, {}),
              IsEmpty());
}

TEST(ShareWarnings, AreOfFoldersThatEverybodyMayWriteTo) {
  for (const char* mode : {"777", "1777", "702", "773"}) {
    EXPECT_THAT(warningsOnMode(mode), ElementsAre(HasSubstr(mode))) << mode;
  }
  for (const char* mode : {"755", "2770", "775", "", "750"}) {
    EXPECT_THAT(warningsOnMode(mode), IsEmpty()) << mode;
  }
}

TEST(ShareWarnings, AreNoneOfWhatIsNotKnown) {
  EXPECT_THAT(warningsOn({}, {}), IsEmpty());
  EXPECT_THAT(warningsOn({{"nfsExportRecord", Dictionary{{"line", "x"}}}}, {}), IsEmpty());
}

}  // namespace
}  // namespace paddock::keelhouse
