#include "keelhouse/share/share_view.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

TEST(ShareView, ListsProtocolsOfEachFolder) {
  const Array list{
      Dictionary{
          {"path", "/srv/a"},
          {"name", "a"},
          {"isSharedOverVSP", true},
          {"nameOverVSP", "a"},
          {"nameOverSMB", "files"},
          {"nameOverFTP", ""},
          {"nfsExportRecord",
           Dictionary{{"clients", Array{Dictionary{{"host", "*"}, {"options", Array{"ro", "sync"}}},
                                        Dictionary{{"host", "h"}}}}}}},
      Dictionary{{"path", "/srv/\x1B"}, {"nameOverVSP", "b"}, {"isSharedOverVSP", false}}};
  EXPECT_EQ(formatShareTable(list),
            "PATH       NAME  VSP  SMB    FTP  NFS\n"
            "/srv/a     a     a    files  -    *(ro,sync) h\n"
            "/srv/\\x1B  -     -    -      -    -\n");
}

TEST(ShareView, ListsExistingAutomountsAndBackups) {
  const Array list{Dictionary{{"path", "/srv/a"},
                              {"isAutomounted", true},
                              {"automountMountPath", "/Network/\x1B"},
                              {"automountDSPath", "/LDAP/site"},
                              {"automountFileSystemType", 1}},
                   Dictionary{{"path", "/srv/b"},
                              {"isAutomounted", true},
                              {"automountMountPath", "/Network/Servers/"},
                              {"automountDSPath", "/Local"},
                              {"isBackstowBackup", true}},
                   Dictionary{{"path", "/srv/c"}, {"isAutomounted", false}}};
  EXPECT_EQ(formatShareTable(list),
            "PATH    NAME  VSP  SMB  FTP  NFS  AUTOMOUNT                             BACKUP\n"
            "/srv/a  -     -    -    -    -    /Network/\\x1B over NFS by /LDAP/site  -\n"
            "/srv/b  -     -    -    -    -    /Network/Servers/ over VSP by /Local  yes\n"
            "/srv/c  -     -    -    -    -    -                                     -\n");
}

TEST(ShareView, ShowsAutomountAndBackupFirst) {
  EXPECT_EQ(formatSharePoint({{"isAutomounted", true},
                              {"automountMountPath", "/Network/Servers/"},
                              {"automountDSPath", "/Local"},
                              {"automountFileSystemType", 0},
                              {"isBackstowBackup", true},
                              {"backstowBackupUUID", "U"},
                              {"isIndexingEnabled", false},
                              {"name", "a"}}),
            "name: a\nisAutomounted: yes\nautomountMountPath: /Network/Servers/\n"
            "automountFileSystemType: VSP\nautomountDSPath: /Local\nisBackstowBackup: yes\n"
            "backstowBackupUUID: U\nisIndexingEnabled: no\n");
}

TEST(ShareView, ShowsEveryPropertyOfShare) {
  EXPECT_EQ(formatSharePoint({{"isShared", true},
                              {"path", "/srv/a\nb"},
                              {"name", "a"},
                              {"isSharedOverVSP", true},
                              {"mountedOnPath", "/"},
                              {"automountFileSystemType", 1},
                              {"nfsExportRecord", Dictionary{{"line", "/srv/a  *(ro)"}}}}),
            "path: /srv/a\\x0Ab\nname: a\nisSharedOverVSP: yes\nnfsExportRecord: /srv/a  *(ro)\n"
            "automountFileSystemType: NFS\nmountedOnPath: /\n");
}

TEST(ShareView, ListsUnfinishedRecordsBelowShares) {
  const Array list{Dictionary{{"name", "left"}, {"nameOverSMB", "left"}},
                   Dictionary{{"path", "/srv/a"}, {"name", "a"}},
                   Dictionary{{"name", "re\x1Blative"}, {"path", "srv/b"}}};
  const std::string unfinished =
      "UNFINISHED    PATH\nleft          -\nre\\x1Blative  srv/b\n"
      "These share nothing. To remove one: keelhouse share remove --name NAME\n";
  EXPECT_EQ(formatShareTable(list),
            "PATH    NAME  VSP  SMB  FTP  NFS\n/srv/a  a     -    -    -    -\n\n" + unfinished);
  EXPECT_EQ(formatShareTable({list[0], list[2]}), unfinished);
}

}  // namespace
}  // namespace paddock::keelhouse
