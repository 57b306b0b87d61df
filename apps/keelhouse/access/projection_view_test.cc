#include "keelhouse/access/projection_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/keelhouse_session.h"
#include "wire/json.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr int kInherit = 96;
constexpr int kOnlyInside = 96 | 256;

Dictionary entry(const char* guid, const char* allow, int bitmap, int flags) {
  return {{"guid", guid}, {"allowPermission", allow}, {"bitmap", bitmap}, {"flags", flags}};
}

KernelAcl kernelAcl(std::vector<KernelAcl::Entry> entries) { return {std::move(entries)}; }

class ProjectionView : public SessionFixture {
 protected:
  Projection project(const Array& acl, const KernelAcls& kernel,
                     const Dictionary& privileges = {{"fileType", "directory"},
                                                     {"owner", "root"}}) {
    return makeProjection(acl, privileges, kernel, principals_);
  }
};

TEST_F(ProjectionView, showsWhatTheKernelSaysAndWhatItCannotSay) {
  KernelAcls kernel;
  kernel.access =
      kernelAcl({{{PrincipalType::user, 65534}, 5}, {{PrincipalType::group, 65534}, 0}});
  kernel.defaultAccess = kernelAcl({{{PrincipalType::user, 65534}, 5}});
  const Projection projection = project(
      {entry(kNobodyGuid, "YES", 2698, kInherit), entry(kNogroupGuid, "NO", 2698, 0)}, kernel);
  EXPECT_EQ(
      formatProjection("/srv/a", projection),
      "NO  WHO            KERNEL  INSIDE  BEYOND THE KERNEL\n"
      "1   user:nobody    r-x     r-x     -\n"
      "2   group:nogroup  ---     -       a group is denied: the kernel still lets in members "
      "who get in by another group\n"
      "                                   not the kernel's to deny: read-attributes, "
      "read-security\n"
      "The kernel's ACL has an entry for each of them.\n");
}

TEST_F(ProjectionView, saysForWhomTheKernelHasNoEntry) {
  KernelAcls kernel;
  kernel.access = kernelAcl({{{PrincipalType::user, 65534}, 5}});
  const Array acl{entry(kNobodyGuid, "YES", 2698, kInherit), entry(kNogroupGuid, "YES", 2698, 0),
                  entry(kNobodyGuid, "YES", 2698, 0)};
  EXPECT_THAT(formatProjection("/srv/a", project(acl, kernel)),
              HasSubstr("The kernel's ACL has no entry for user:nobody, group:nogroup.\n"));
}

TEST_F(ProjectionView, looksForEntriesThatAreOnlyInheritedInTheDefaultAcl) {
  KernelAcls kernel;
  kernel.access = kernelAcl({{{PrincipalType::user, 65534}, 7}});
  kernel.defaultAccess = kernelAcl({{{PrincipalType::user, 65534}, 4}});
  const Projection projection = project({entry(kNobodyGuid, "YES", 2698, kOnlyInside)}, kernel);
  EXPECT_EQ(projection.entries[0].access, std::nullopt);
  EXPECT_EQ(projection.entries[0].defaultAccess, 4U);
  EXPECT_TRUE(projection.entries[0].held);
}

TEST_F(ProjectionView, takesTheOwnerFromThePrivileges) {
  const Projection projection = project({entry(kRootGuid, "YES", 2698, 0)}, {});
  EXPECT_THAT(projection.entries[0].beyond,
              ::testing::Contains("this user is the owner, for whom the kernel takes the mode"));
  EXPECT_TRUE(
      project({entry(kRootGuid, "YES", 2698, 0)}, {}, {{"owner", ""}}).entries[0].beyond.empty());
}

TEST_F(ProjectionView, saysThatTheKernelKeepsNoAcl) {
  EXPECT_THAT(formatProjection("/srv/a", project({entry(kNobodyGuid, "YES", 2698, 0)}, {})),
              StartsWith("The kernel keeps no ACL of its own for /srv/a: there the mode alone "
                         "decides.\nNO  "));
}

TEST_F(ProjectionView, saysWhyTheKernelsAclCannotBeRead) {
  KernelAcls kernel;
  kernel.error = "Operation not supported";
  EXPECT_THAT(formatProjection("/srv/\x1B", project({entry(kNobodyGuid, "YES", 2698, 0)}, kernel)),
              StartsWith("The kernel's ACL of /srv/\\x1B cannot be read: Operation not supported.\n"
                         "NO  "));
}

TEST_F(ProjectionView, saysThatThereAreNoEntries) {
  EXPECT_EQ(formatProjection("/srv/a", project({}, {})), "/srv/a has no ACL entries.\n");
}

TEST_F(ProjectionView, isAnArrayForPrograms) {
  KernelAcls kernel;
  kernel.access = kernelAcl({{{PrincipalType::user, 65534}, 7}});
  const Projection projection = project(
      {entry(kNobodyGuid, "YES", 2698, kInherit), entry(kNogroupGuid, "YES", 16, 0)}, kernel);
  EXPECT_EQ(wire::writeJson(projectionValue(projection)),
            R"([{"access":"rwx","beyond":[],"who":"user:nobody"},)"
            R"({"beyond":["not the kernel's to give: delete"],"who":"group:nogroup"}])");
}

}  // namespace
}  // namespace paddock::keelhouse
