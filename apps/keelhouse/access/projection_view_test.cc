#include "keelhouse/access/projection_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/access/acl_words.h"
#include "support/keelhouse_session.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr Principal kAnna{PrincipalType::user, 1000};
constexpr Principal kStaff{PrincipalType::group, 20};

ProjectedEntry entryFor(std::optional<Principal> who, const char* action, const char* words,
                        const char* inheritance = nullptr) {
  ProjectedEntry entry;
  entry.who = who;
  entry.ace.allow = std::string_view(action) == "allow";
  entry.ace.rights = parseRights(words);
  if (inheritance != nullptr) entry.ace.inheritance = parseInheritance(inheritance);
  return entry;
}

std::vector<std::string> beyond(const ProjectedEntry& entry, bool folder = true) {
  return beyondKernel({entry}, folder, 42).front();
}

TEST(Projection, OmitsRightsKernelExpresses) {
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "read")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kStaff, "allow", "read", "inherit")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "search")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "none")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "search", "inherit,only-inherit")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "add-file,add-folder,delete-child,write-extended")),
              IsEmpty());
}

TEST(Projection, NamesRightsSharingOneKernelBit) {
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "add-folder")),
              ElementsAre("add-folder without add-file, delete-child: the kernel has one bit to "
                          "write, which is not given"));
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "write-data"), false),
              ElementsAre("write-data without append: the kernel has one bit to write, which is "
                          "given"));
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "add-file,add-folder")),
              ElementsAre("add-file, add-folder without delete-child: the kernel has one bit to "
                          "write, which is denied"));
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "append"), false),
              ElementsAre("append without write-data: the kernel has one bit to write, which is "
                          "not denied"));
}

TEST(Projection, TreatsDeleteChildAsFolderRight) {
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "write-data,append"), false), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "add-file,add-folder"), true),
              ElementsAre(HasSubstr("without delete-child")));
}

TEST(Projection, TreatsExtendedAttributesLikeData) {
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "list")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "list,read-extended")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "read-extended,write-extended")),
              ElementsAre("not the kernel's to give: read-extended, write-extended"));
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "read-extended")),
              ElementsAre("not the kernel's to deny: read-extended"));
  EXPECT_THAT(
      beyond(entryFor(kAnna, "deny", "write-data,append,read-extended,write-extended"), false),
      ElementsAre("not the kernel's to deny: read-extended"));
}

TEST(Projection, NamesRightsKernelDoesNotGrant) {
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "full")),
              ElementsAre("not the kernel's to give: delete, write-attributes, write-security, "
                          "change-owner"));
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "write")),
              ElementsAre("not the kernel's to give: delete, write-attributes"));
}

TEST(Projection, NamesRightsKernelDoesNotDeny) {
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "read")),
              ElementsAre("not the kernel's to deny: read-attributes, read-security"));
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "full")),
              ElementsAre("not the kernel's to deny: delete, read-attributes, write-attributes, "
                          "read-security, write-security, change-owner"));
}

TEST(Projection, WarnsDeniedGroupMayEnterThroughAnother) {
  EXPECT_THAT(beyond(entryFor(kStaff, "deny", "search")),
              ElementsAre("a group is denied: the kernel still lets in members who get in by "
                          "another group"));
  EXPECT_THAT(beyond(entryFor(kStaff, "deny", "delete")),
              ElementsAre("not the kernel's to deny: delete"));
}

TEST(Projection, NamesLimitsOfInheritance) {
  EXPECT_THAT(
      beyond(entryFor(kAnna, "allow", "read", "file-inherit")),
      ElementsAre("files alone inherit it: the kernel's default ACL is for files and folders "
                  "alike"));
  EXPECT_THAT(
      beyond(entryFor(kAnna, "allow", "read", "directory-inherit,limit-inherit")),
      ElementsAre("folders alone inherit it: the kernel's default ACL is for files and folders "
                  "alike",
                  "inheritance ends after one level: the kernel's default ACL goes on to every "
                  "level"));
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "read", "inherit,inherited")), IsEmpty());
}

TEST(Projection, NotesModeAppliesToOwner) {
  EXPECT_THAT(beyond(entryFor(Principal{PrincipalType::user, 42}, "deny", "search")),
              ElementsAre("this user is the owner, for whom the kernel takes the mode"));
  EXPECT_THAT(beyond(entryFor(Principal{PrincipalType::group, 42}, "allow", "search")), IsEmpty());
  EXPECT_THAT(beyondKernel({entryFor(kAnna, "deny", "search")}, true, std::nullopt).front(),
              IsEmpty());
}

TEST(Projection, NamesPrincipalsKernelCannotName) {
  EXPECT_THAT(beyond(entryFor(std::nullopt, "allow", "read")),
              ElementsAre("no uid or gid of this system: the kernel's ACL cannot name it"));
}

TEST(Projection, MarksEntriesOfOtherKind) {
  EXPECT_THAT(beyondKernel({ProjectedEntry{}}, true, 0).front(),
              ElementsAre("an entry of a kind that the kernel does not have"));
}

TEST(Projection, ReportsEveryEntryInOrder) {
  const auto all = beyondKernel({entryFor(kAnna, "allow", "read"), entryFor(kStaff, "deny", "list"),
                                 entryFor(kAnna, "allow", "full", "file-inherit,limit-inherit")},
                                true, 0);
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0].size(), 0U);
  EXPECT_EQ(all[1].size(), 1U);
  EXPECT_EQ(all[2].size(), 3U);
  EXPECT_THAT(beyondKernel({}, true, 0), IsEmpty());
}

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

TEST_F(ProjectionView, ShowsKernelBitsAndInexpressibleRights) {
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

TEST_F(ProjectionView, NamesPrincipalsWithoutKernelEntry) {
  KernelAcls kernel;
  kernel.access = kernelAcl({{{PrincipalType::user, 65534}, 5}});
  const Array acl{entry(kNobodyGuid, "YES", 2698, kInherit), entry(kNogroupGuid, "YES", 2698, 0),
                  entry(kNobodyGuid, "YES", 2698, 0)};
  EXPECT_THAT(formatProjection("/srv/a", project(acl, kernel)),
              HasSubstr("The kernel's ACL has no entry for user:nobody, group:nogroup.\n"));
}

TEST_F(ProjectionView, FindsInheritOnlyEntriesInDefaultAcl) {
  KernelAcls kernel;
  kernel.access = kernelAcl({{{PrincipalType::user, 65534}, 7}});
  kernel.defaultAccess = kernelAcl({{{PrincipalType::user, 65534}, 4}});
  const Projection projection = project({entry(kNobodyGuid, "YES", 2698, kOnlyInside)}, kernel);
  EXPECT_EQ(projection.entries[0].access, std::nullopt);
  EXPECT_EQ(projection.entries[0].defaultAccess, 4U);
  EXPECT_TRUE(projection.entries[0].held);
}

TEST_F(ProjectionView, TakesOwnerFromPrivileges) {
  const Projection projection = project({entry(kRootGuid, "YES", 2698, 0)}, {});
  EXPECT_THAT(projection.entries[0].beyond,
              ::testing::Contains("this user is the owner, for whom the kernel takes the mode"));
  EXPECT_TRUE(
      project({entry(kRootGuid, "YES", 2698, 0)}, {}, {{"owner", ""}}).entries[0].beyond.empty());
}

TEST_F(ProjectionView, ReportsMissingKernelAcl) {
  EXPECT_THAT(formatProjection("/srv/a", project({entry(kNobodyGuid, "YES", 2698, 0)}, {})),
              StartsWith("The kernel keeps no ACL of its own for /srv/a: there the mode alone "
                         "decides.\nNO  "));
}

TEST_F(ProjectionView, ReportsReasonForUnreadableKernelAcl) {
  KernelAcls kernel;
  kernel.error = "Operation not supported";
  EXPECT_THAT(formatProjection("/srv/\x1B", project({entry(kNobodyGuid, "YES", 2698, 0)}, kernel)),
              StartsWith("The kernel's ACL of /srv/\\x1B cannot be read: Operation not supported.\n"
                         "NO  "));
}

TEST_F(ProjectionView, ReportsMissingEntries) {
  EXPECT_EQ(formatProjection("/srv/a", project({}, {})), "/srv/a has no ACL entries.\n");
}

TEST_F(ProjectionView, IsJsonArrayForPrograms) {
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
