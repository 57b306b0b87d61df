#include "keelhouse/access/acl_projection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/access/acl_words.h"

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

TEST(Projection, saysNothingOfWhatTheKernelSaysToo) {
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "read")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kStaff, "allow", "read", "inherit")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "search")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "none")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "search", "inherit,only-inherit")), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "add-file,add-folder,delete-child,write-extended")),
              IsEmpty());
}

TEST(Projection, namesTheRightsThatOneBitOfTheKernelCannotTellApart) {
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

TEST(Projection, takesDeletingInsideForAFoldersRight) {
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "write-data,append"), false), IsEmpty());
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "add-file,add-folder"), true),
              ElementsAre(HasSubstr("without delete-child")));
}

TEST(Projection, takesExtendedAttributesWithTheData) {
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

TEST(Projection, namesTheRightsThatTheKernelDoesNotGive) {
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "full")),
              ElementsAre("not the kernel's to give: delete, write-attributes, write-security, "
                          "change-owner"));
  EXPECT_THAT(beyond(entryFor(kAnna, "allow", "write")),
              ElementsAre("not the kernel's to give: delete, write-attributes"));
}

TEST(Projection, namesTheRightsThatTheKernelDoesNotDeny) {
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "read")),
              ElementsAre("not the kernel's to deny: read-attributes, read-security"));
  EXPECT_THAT(beyond(entryFor(kAnna, "deny", "full")),
              ElementsAre("not the kernel's to deny: delete, read-attributes, write-attributes, "
                          "read-security, write-security, change-owner"));
}

TEST(Projection, saysThatADeniedGroupMayGetInByAnother) {
  EXPECT_THAT(beyond(entryFor(kStaff, "deny", "search")),
              ElementsAre("a group is denied: the kernel still lets in members who get in by "
                          "another group"));
  EXPECT_THAT(beyond(entryFor(kStaff, "deny", "delete")),
              ElementsAre("not the kernel's to deny: delete"));
}

TEST(Projection, namesTheLimitsOfInheritance) {
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

TEST(Projection, saysThatTheModeHoldsForTheOwner) {
  EXPECT_THAT(beyond(entryFor(Principal{PrincipalType::user, 42}, "deny", "search")),
              ElementsAre("this user is the owner, for whom the kernel takes the mode"));
  EXPECT_THAT(beyond(entryFor(Principal{PrincipalType::group, 42}, "allow", "search")), IsEmpty());
  EXPECT_THAT(beyondKernel({entryFor(kAnna, "deny", "search")}, true, std::nullopt).front(),
              IsEmpty());
}

TEST(Projection, saysWhomTheKernelCannotName) {
  EXPECT_THAT(beyond(entryFor(std::nullopt, "allow", "read")),
              ElementsAre("no uid or gid of this system: the kernel's ACL cannot name it"));
}

TEST(Projection, saysWhichEntriesAreOfAnotherKind) {
  EXPECT_THAT(beyondKernel({ProjectedEntry{}}, true, 0).front(),
              ElementsAre("an entry of a kind that the kernel does not have"));
}

TEST(Projection, speaksOfEveryEntryInItsPlace) {
  const auto all = beyondKernel({entryFor(kAnna, "allow", "read"), entryFor(kStaff, "deny", "list"),
                                 entryFor(kAnna, "allow", "full", "file-inherit,limit-inherit")},
                                true, 0);
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0].size(), 0U);
  EXPECT_EQ(all[1].size(), 1U);
  EXPECT_EQ(all[2].size(), 3U);
  EXPECT_THAT(beyondKernel({}, true, 0), IsEmpty());
}

}  // namespace
}  // namespace paddock::keelhouse
