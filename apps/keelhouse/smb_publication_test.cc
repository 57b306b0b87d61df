#include "keelhouse/smb_publication.h"

#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

Dictionary share(const char* path, const char* name) {
  return {{"path", path}, {"nameOverSMB", name}};
}

TEST(SmbPublication, isInTheTreeOfTheSocket) {
  EXPECT_EQ(publishedSharesOf("/run/paddock/paddockd.sock"), "/etc/samba/paddock-shares.conf");
  EXPECT_EQ(publishedSharesOf("/opt/t/run/paddock/paddockd.sock"),
            "/opt/t/etc/samba/paddock-shares.conf");
  EXPECT_EQ(publishedSharesOf("/tmp/other.sock"), "");
}

TEST(SmbPublication, isASectionOfThatNameWithThatPath) {
  const TestFolder folder;
  const std::string file = folder.path("paddock-shares.conf");
  writeWholeFile(file,
                 "# [comment]\n\n[Plans]\n    path = /srv/plans\n    comment = plans\n"
                 "    read only = no\n\n[a b]\n    path = /srv/a b\n\n[global]\n");
  EXPECT_EQ(isPublishedOverSmb(file, share("/srv/plans", "Plans")), true);
  EXPECT_EQ(isPublishedOverSmb(file, share("/srv/a b", "a b")), true);
  EXPECT_EQ(isPublishedOverSmb(file, share("/srv/other", "Plans")), false);
  EXPECT_EQ(isPublishedOverSmb(file, share("/srv/plans", "Other")), false);
  EXPECT_EQ(isPublishedOverSmb(file, share("/srv/g", "global")), false);
  EXPECT_EQ(isPublishedOverSmb(file, share("/srv/plans\n", "Plans")), false);
}

TEST(SmbPublication, isNotKnownWithoutANameOrAFile) {
  const TestFolder folder;
  const std::string file = folder.path("paddock-shares.conf");
  EXPECT_EQ(isPublishedOverSmb(file, share("/srv/a", "a")), std::nullopt);
  EXPECT_EQ(isPublishedOverSmb("", share("/srv/a", "a")), std::nullopt);
  writeWholeFile(file, "");
  EXPECT_EQ(isPublishedOverSmb(file, share("/srv/a", "")), std::nullopt);
  EXPECT_EQ(isPublishedOverSmb(file, {{"path", "/srv/a"}}), std::nullopt);
  EXPECT_EQ(isPublishedOverSmb(file, share("/srv/a", "a")), false);
}

}  // namespace
}  // namespace paddock::keelhouse
