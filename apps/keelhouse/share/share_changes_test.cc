#include "keelhouse/share/share_changes.h"

#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"
#include "keelhouse/share/nfs_client.h"

namespace paddock::keelhouse {
namespace {

TEST(NewShare, takesEveryNameFromTheLastComponent) {
  EXPECT_EQ(newShareRecord("/srv/my files", {}), (Dictionary{{"path", "/srv/my files"},
                                                             {"name", "my files"},
                                                             {"nameOverVSP", "my files"},
                                                             {"nameOverSMB", "my files"},
                                                             {"nameOverFTP", "my files"},
                                                             {"isSharedOverVSP", true}}));
}

TEST(NewShare, keepsTheNamesThatWereGiven) {
  ShareChanges changes;
  changes.name = "n";
  changes.vspName = "v";
  changes.smbName = "s";
  changes.ftpName = "f";
  EXPECT_EQ(newShareRecord("/srv/a", changes), (Dictionary{{"path", "/srv/a"},
                                                           {"name", "n"},
                                                           {"nameOverVSP", "v"},
                                                           {"nameOverSMB", "s"},
                                                           {"nameOverFTP", "f"},
                                                           {"isSharedOverVSP", true}}));
}

TEST(NewShare, isNotPublishedWhereThatIsSwitchedOff) {
  ShareChanges changes;
  changes.vsp = false;
  changes.smb = false;
  changes.ftp = false;
  EXPECT_EQ(
      newShareRecord("/srv/a", changes),
      (Dictionary{
          {"path", "/srv/a"}, {"name", "a"}, {"nameOverVSP", "a"}, {"isSharedOverVSP", false}}));
}

TEST(NewShare, cutsTheVspNameOfALongFolderAtThirtyOneCharacters) {
  std::string folder;
  for (int count = 0; count < 40; ++count) folder += "\xC3\xA9";
  const Dictionary record = newShareRecord("/srv/" + folder, {});
  EXPECT_EQ(*record.string("nameOverVSP"), folder.substr(0, 62));
  EXPECT_EQ(*record.string("nameOverSMB"), folder);
}

TEST(NewShare, refusesNamesThatCannotBeUsed) {
  ShareChanges empty;
  empty.smbName = "";
  EXPECT_THROW(newShareRecord("/srv/a", empty), Failure);
  ShareChanges notUtf8;
  notUtf8.name = "\xFF";
  EXPECT_THROW(newShareRecord("/srv/a", notUtf8), Failure);
  ShareChanges tooLong;
  tooLong.vspName = std::string(32, 'v');
  EXPECT_THROW(newShareRecord("/srv/a", tooLong), Failure);
}

TEST(NewShare, needsNamesForTheRootFolder) {
  EXPECT_THROW(newShareRecord("/", {}), Failure);
  ShareChanges changes;
  changes.name = changes.vspName = changes.smbName = changes.ftpName = "all";
  EXPECT_EQ(*newShareRecord("/", changes).string("nameOverFTP"), "all");
}

TEST(NewShare, carriesItsNfsClients) {
  ShareChanges changes;
  changes.nfsClients = {"10.0.0.0/8(rw,sync)", "*"};
  const Dictionary record = newShareRecord("/srv/a", changes);
  EXPECT_EQ(*record.dictionary("nfsExportRecord"),
            (Dictionary{{"clients",
                         Array{Dictionary{{"host", "10.0.0.0/8"}, {"options", Array{"rw", "sync"}}},
                               Dictionary{{"host", "*"}, {"options", Array{}}}}}}));
}

TEST(ChangedShare, namesOnlyWhatChanges) {
  ShareChanges changes;
  changes.vspName = "new";
  EXPECT_EQ(changedShareRecord("/srv/a", changes, {{"path", "/srv/a"}, {"name", "a"}}),
            (Dictionary{{"path", "/srv/a"}, {"nameOverVSP", "new"}}));
}

TEST(ChangedShare, keepsTheStoredSpellingOfThePath) {
  ShareChanges changes;
  changes.name = "n";
  EXPECT_EQ(changedShareRecord("/SRV/a", changes, {{"path", "/srv/a"}}),
            (Dictionary{{"path", "/srv/a"}, {"name", "n"}}));
}

TEST(ChangedShare, isUnpublishedByAnEmptyName) {
  ShareChanges changes;
  changes.smb = false;
  changes.ftp = false;
  changes.vsp = false;
  EXPECT_EQ(changedShareRecord("/srv/a", changes, {{"path", "/srv/a"}}),
            (Dictionary{{"path", "/srv/a"},
                        {"isSharedOverVSP", false},
                        {"nameOverFTP", ""},
                        {"nameOverSMB", ""}}));
}

TEST(ChangedShare, isPublishedUnderItsStoredNameOrTheFoldersName) {
  ShareChanges changes;
  changes.smb = true;
  changes.ftp = true;
  changes.vsp = true;
  EXPECT_EQ(
      changedShareRecord("/srv/a", changes,
                         {{"path", "/srv/a"}, {"nameOverSMB", "stored"}, {"nameOverFTP", ""}}),
      (Dictionary{{"path", "/srv/a"},
                  {"isSharedOverVSP", true},
                  {"nameOverVSP", "a"},
                  {"nameOverSMB", "stored"},
                  {"nameOverFTP", "a"}}));
}

TEST(ChangedShare, losesItsExport) {
  ShareChanges changes;
  changes.noNfs = true;
  EXPECT_EQ(changedShareRecord("/srv/a", changes, {{"path", "/srv/a"}}),
            (Dictionary{{"path", "/srv/a"}, {"nfsExportRecord", Dictionary{{"isDeleted", true}}}}));
}

TEST(NfsClient, isAHostWithOrWithoutOptions) {
  EXPECT_EQ(parseNfsClient("host"), (Dictionary{{"host", "host"}, {"options", Array{}}}));
  EXPECT_EQ(parseNfsClient("host()"), (Dictionary{{"host", "host"}, {"options", Array{}}}));
  EXPECT_EQ(parseNfsClient("fe80::/10(ro,no_root_squash)"),
            (Dictionary{{"host", "fe80::/10"}, {"options", Array{"ro", "no_root_squash"}}}));
  for (const char* text : {"*", "10.0.0.1(rw)", "@group(ro,sync)"}) {
    EXPECT_EQ(formatNfsClient(parseNfsClient(text)), text);
  }
}

TEST(NfsClient, isRefusedWhenALineCannotHoldIt) {
  for (const char* text :
       {"", "(rw)", "a b", "a(rw", "a)", "a(r w)", "a((rw))", "a(rw)(ro)", "a\n(rw)", "a(rw\n)",
        "a(,)", "a(rw,)", "a\"b", "#a", "\xFF", "a(rw)x"}) {
    EXPECT_THROW(parseNfsClient(text), Failure) << text;
  }
}

}  // namespace
}  // namespace paddock::keelhouse
