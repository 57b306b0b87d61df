#include "keelhouse/share/share_notes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(ShareNotes, sayNothingOfWhatReachesItsClients) {
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

TEST(ShareNotes, tellOfAnAutomountOverNfsWithoutAnExport) {
  EXPECT_THAT(notesOn({{"isAutomounted", true}, {"automountFileSystemType", 1}}),
              ElementsAre(HasSubstr("it is not exported itself (--nfs CLIENT)")));
}

TEST(ShareNotes, tellOfAnAutomountOverVspThatIsNotPublishedThere) {
  EXPECT_THAT(notesOn({{"isAutomounted", true}, {"nameOverVSP", "a"}, {"isSharedOverVSP", false}}),
              ElementsAre(HasSubstr("it is not published there (--vsp)")));
  EXPECT_THAT(notesOn({{"isAutomounted", true}, {"isSharedOverVSP", true}, {"nameOverVSP", ""}}),
              ElementsAre(HasSubstr("it is not published there (--vsp)")));
}

TEST(ShareNotes, tellOfABackupDestinationThatIsNotAdvertised) {
  EXPECT_THAT(notesOn({{"isBackstowBackup", true}, {"isSharedOverVSP", false}}),
              ElementsAre(HasSubstr("not advertised as a backup destination")));
}

TEST(ShareNotes, tellOfOptionsOverSmbWithoutANameThere) {
  const Dictionary options{{"readOnly", true}};
  EXPECT_THAT(notesOn({{"smb", options}}), ElementsAre(HasSubstr("(--smb)")));
  EXPECT_THAT(notesOn({{"smb", options}, {"nameOverSMB", ""}}), ElementsAre(HasSubstr("(--smb)")));
  EXPECT_THAT(notesOn({{"smb", options}, {"nameOverSMB", "a"}}), IsEmpty());
}

}  // namespace
}  // namespace paddock::keelhouse
