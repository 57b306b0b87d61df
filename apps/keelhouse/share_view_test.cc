#include "keelhouse/share_view.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

TEST(ShareView, listsWhereEachFolderIsPublished) {
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

TEST(ShareView, showsEveryPropertyOfOne) {
  EXPECT_EQ(formatSharePoint({{"isShared", true},
                              {"path", "/srv/a\nb"},
                              {"name", "a"},
                              {"isSharedOverVSP", true},
                              {"mountedOnPath", "/"},
                              {"automountFileSystemType", 1},
                              {"nfsExportRecord", Dictionary{{"line", "/srv/a  *(ro)"}}}}),
            "path: /srv/a\\x0Ab\nname: a\nisSharedOverVSP: yes\nnfsExportRecord: /srv/a  *(ro)\n"
            "automountFileSystemType: 1\nmountedOnPath: /\n");
}

}  // namespace
}  // namespace paddock::keelhouse
