#include "keelhouse/share/share_notes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace paddock::keelhouse {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(ShareNotes, OmitSharesReachingTheirClients) {
  EXPECT_THAT(notesOn({{"isSharedOverVSP", false}}), IsEmpty());
  EXPECT_THAT(notesOn({{"isSharedOverVSP", true},
                       {"nameOverVSP", "a"},
                       {"isAutomounted", true},
                       {"isBackstowBackup", true}}),
              IsEmpty());
  EXPECT_THAT(notesOn({{"isAutomounted", true},
                       {"automountFileSystemType", 1},
                       {"nfsExportRecord", Dictionary{{"path", "/a"}}}}),
              IsEmpty());
}

TEST(ShareNotes, ReportNfsAutomountWithoutExport) {
  EXPECT_THAT(notesOn({{"isAutomounted", true}, {"automountFileSystemType", 1}}),
              ElementsAre(HasSubstr("it is not exported itself (--nfs CLIENT)")));
}

TEST(ShareNotes, ReportVspAutomountWithoutPublication) {
  EXPECT_THAT(notesOn({{"isAutomounted", true}, {"nameOverVSP", "a"}, {"isSharedOverVSP", false}}),
              ElementsAre(HasSubstr("it is not published there (--vsp)")));
  EXPECT_THAT(notesOn({{"isAutomounted", true}, {"isSharedOverVSP", true}, {"nameOverVSP", ""}}),
              ElementsAre(HasSubstr("it is not published there (--vsp)")));
}

TEST(ShareNotes, ReportUnadvertisedBackupDestination) {
  EXPECT_THAT(notesOn({{"isBackstowBackup", true}, {"isSharedOverVSP", false}}),
              ElementsAre(HasSubstr("not advertised as a backup destination")));
}

TEST(ShareNotes, ReportSmbOptionsWithoutSmbName) {
  const Dictionary options{{"readOnly", true}};
  EXPECT_THAT(notesOn({{"smb", options}}), ElementsAre(HasSubstr("(--smb)")));
  EXPECT_THAT(notesOn({{"smb", options}, {"nameOverSMB", ""}}), ElementsAre(HasSubstr("(--smb)")));
  EXPECT_THAT(notesOn({{"smb", options}, {"nameOverSMB", "a"}}), IsEmpty());
}

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

TEST(ShareWarnings, ExcludeRootOfSingleHostAndSquashedRoot) {
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
