#include "privileges/inherit_parent_acl.h"

#include <gtest/gtest.h>

#include "privileges/ace_dictionary.h"
#include "support/privileges_fixture.h"

namespace paddock {
namespace {

class InheritParentAcl : public PrivilegesFixture {
 protected:
  static constexpr const char* kFile = "/srv/folder/file";

  InheritParentAcl() { tree.set(kFile, {"anna", "staff", 0644, "regular"}); }

  void store(const char* path, const std::vector<acl::Entry>& entries) {
    tree.setAcl(path, {.entries = entries});
  }
  static acl::Entry allow(std::uint8_t guid, acl::Flag flags) {
    return entryOf(acl::kExtendedAllow, guidNumber(guid), 2, flags);
  }
  // The last byte of each entry's GUID, and its flags.
  std::vector<std::pair<int, std::int64_t>> inherit(const std::string& path = kFile) {
    Array entries;
    status_ = inherit_parent_ACL(path, entries);
    std::vector<std::pair<int, std::int64_t>> found;
    for (const Value& entry : entries) {
      const auto guid = parseGuid(*entry.dictionary()->string(ace::kGuid));
      found.emplace_back(guid->bytes[15], *entry.dictionary()->integer(ace::kFlags));
    }
    return found;
  }
  using Found = std::vector<std::pair<int, std::int64_t>>;

  Status status_ = kSuccess;
};

TEST_F(InheritParentAcl, OwnEntriesComeBeforeTheParentsOnes) {
  store(kFile, {allow(1, 0)});
  store(kFolder, {allow(2, acl::kFileInherit)});
  EXPECT_EQ(inherit(), (Found{{1, 0}, {2, 48}}));
  EXPECT_EQ(status_, kSuccess);
}

TEST_F(InheritParentAcl, WhatFoldersAloneInheritIsNotTakenOverNotEvenByAFolder) {
  store(kFolder, {allow(1, acl::kDirectoryInherit), allow(2, 0), allow(3, acl::kLimitInherit)});
  tree.setFolder("/srv/folder/inner");
  EXPECT_EQ(inherit(), Found{});
  EXPECT_EQ(inherit("/srv/folder/inner"), Found{});
}

TEST_F(InheritParentAcl, OwnInheritedEntriesNeverAppear) {
  store(kFile, {allow(1, acl::kInherited), allow(2, 0), allow(3, acl::kInherited | 0x1E0)});
  EXPECT_EQ(inherit(), (Found{{2, 0}}));
}

TEST_F(InheritParentAcl, EveryOtherFlagOfAParentsEntryIsKept) {
  store(kFolder, {allow(1, 0x1E0), allow(2, 0x1F0)});
  EXPECT_EQ(inherit(), (Found{{1, 0x1F0}, {2, 0x1F0}}));
}

TEST_F(InheritParentAcl, OnlyTheFolderAboveIsAsked) {
  tree.setFolder("/srv");
  store("/srv", {allow(1, acl::kFileInherit)});
  EXPECT_EQ(inherit(), Found{});
  EXPECT_EQ(inherit(kFolder), (Found{{1, 48}}));
  EXPECT_EQ(inherit("/srv/folder///"), (Found{{1, 48}}));
}

TEST_F(InheritParentAcl, TheTopFolderIsItsOwnParent) {
  tree.setFolder("/");
  store("/", {allow(1, acl::kFileInherit)});
  EXPECT_EQ(inherit("/"), (Found{{1, 32}, {1, 48}}));
  EXPECT_EQ(inherit("/srv"), (Found{{1, 48}}));
}

TEST_F(InheritParentAcl, AnInvalidAclOfEitherIsTheStatus) {
  tree.setAcl(kFile, {.entries = {}, .undecodable = true});
  EXPECT_EQ(inherit(), Found{});
  EXPECT_EQ(status_, INVALID_ACL_ERR);
  store(kFile, {allow(1, 0)});
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  inherit();
  EXPECT_EQ(status_, INVALID_ACL_ERR);
}

TEST_F(InheritParentAcl, NothingIsWritten) {
  store(kFolder, {allow(2, acl::kFileInherit)});
  inherit();
  EXPECT_EQ(acl.replacements(), 0);
}

}  // namespace
}  // namespace paddock
