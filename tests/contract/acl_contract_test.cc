// What acl.h promises of lists on files. What it promises of lists alone is the code that both
// implementations share.
#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "file_subject.h"

namespace paddock::contract {
namespace {

using acl::kExtendedAllow;
using acl::kExtendedDeny;
using acl::kTypeExtended;

// An entry as a test states it.
struct Line {
  int tag = kExtendedAllow;
  Guid guid;
  acl::Permission permissions = 0;
  acl::Flag flags = 0;
  friend bool operator==(const Line&, const Line&) = default;
};
std::ostream& operator<<(std::ostream& out, const Line& line) {
  return out << line.tag << " " << guidText(line.guid) << " " << line.permissions << " "
             << line.flags;
}
using Lines = std::vector<Line>;

class AclContract : public ::testing::TestWithParam<FileKind> {
 protected:
  void SetUp() override {
    if (const std::string why = subject_->whyNot(); !why.empty()) GTEST_SKIP() << why;
    subject_->makeFile(file_);
    subject_->makeFolder(folder_);
  }

  acl::AclService& service() { return subject_->acl(); }

  acl::List* makeList(const Lines& lines) {
    acl::List* list = service().acl_init(1);
    for (const Line& line : lines) append(list, line);
    return list;
  }
  void append(acl::List* list, const Line& line) {
    acl::Entry* entry = nullptr;
    acl::Permset* permset = nullptr;
    acl::Flagset* flagset = nullptr;
    ASSERT_EQ(service().acl_create_entry(list, entry), 0);
    ASSERT_EQ(service().acl_set_tag_type(entry, line.tag), 0);
    ASSERT_EQ(service().acl_set_qualifier(entry, line.guid), 0);
    ASSERT_EQ(service().acl_get_permset(entry, permset), 0);
    ASSERT_EQ(service().acl_get_flagset_np(entry, flagset), 0);
    for (const acl::Permission value : acl::kPermissions)
      if ((line.permissions & value) != 0) {
        EXPECT_EQ(service().acl_add_perm(permset, value), 0);
      }
    for (const acl::Flag value : acl::kFlags)
      if ((line.flags & value) != 0) {
        EXPECT_EQ(service().acl_add_flag_np(flagset, value), 0);
      }
  }
  // 0, or the errno.
  int write(const std::string& path, acl::List* list, int type = kTypeExtended) {
    errno = 0;
    const int result = service().acl_set_file(path, type, list);
    const int error = result == 0 ? 0 : errno;
    EXPECT_EQ(service().acl_free(list), 0);
    EXPECT_EQ(result == 0, error == 0);
    return error;
  }
  int write(const std::string& path, const Lines& lines) { return write(path, makeList(lines)); }

  Line lineOf(acl::Entry* entry) {
    Line line;
    acl::Permset* permset = nullptr;
    acl::Flagset* flagset = nullptr;
    EXPECT_EQ(service().acl_get_tag_type(entry, line.tag), 0);
    Guid* qualifier = service().acl_get_qualifier(entry);
    if (qualifier != nullptr) line.guid = *qualifier;
    EXPECT_EQ(service().acl_free(qualifier), 0);
    EXPECT_EQ(service().acl_get_permset(entry, permset), 0);
    EXPECT_EQ(service().acl_get_flagset_np(entry, flagset), 0);
    for (const acl::Permission value : acl::kPermissions)
      if (service().acl_get_perm_np(permset, value) == 1) line.permissions |= value;
    for (const acl::Flag value : acl::kFlags)
      if (service().acl_get_flag_np(flagset, value) == 1) line.flags |= value;
    return line;
  }
  Lines linesOf(acl::List* list) {
    Lines lines;
    acl::Entry* entry = nullptr;
    int which = acl::kFirstEntry;
    while (service().acl_get_entry(list, which, entry) == 0) {
      lines.push_back(lineOf(entry));
      which = acl::kNextEntry;
    }
    return lines;
  }
  // The list of the file; absent when it has none.
  std::optional<Lines> read(const std::string& path) {
    errno = 0;
    acl::List* list = service().acl_get_file(path, kTypeExtended);
    if (list == nullptr) {
      EXPECT_EQ(errno, ENOENT) << path;
      return std::nullopt;
    }
    EXPECT_EQ(service().acl_valid(list), 0);
    Lines lines = linesOf(list);
    EXPECT_EQ(service().acl_free(list), 0);
    return lines;
  }

  std::unique_ptr<FileSubject> subject_ = GetParam().make();
  const std::string file_ = subject_->path("file");
  const std::string folder_ = subject_->path("folder");
  const std::string missing_ = subject_->path("missing");
  // GUIDs of no principal.
  const Guid one_ = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
  const Guid two_ = *parseGuid("DEADBEEF-0000-4000-8000-000000000002");
  const Lines some_ = {{kExtendedAllow, one_, acl::kReadData | acl::kExecute, 0},
                       {kExtendedDeny, two_, acl::kDelete, acl::kFileInherit}};
};
INSTANTIATE_TEST_SUITE_P(Acl, AclContract, ::testing::ValuesIn(kFileKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(AclContract, AFileStartsWithoutAList) {
  EXPECT_EQ(read(file_), std::nullopt);
  EXPECT_EQ(read(folder_), std::nullopt);
}

TEST_P(AclContract, WhatWasWrittenIsRead) {
  EXPECT_EQ(write(folder_, some_), 0);
  EXPECT_EQ(read(folder_), some_);
  EXPECT_EQ(write(file_, some_), 0);
  EXPECT_EQ(read(file_), some_);
}

TEST_P(AclContract, StrangersSymlinkIsReadButRefusesWrites) {
  const std::string link = subject_->path("link");
  subject_->makeLinkOfDaemon(link, folder_);
  subject_->makeFile(folder_ + "/inside");
  ASSERT_EQ(write(folder_, some_), 0);
  EXPECT_EQ(read(link), some_);
  for (const std::string& path : {link, link + "/inside"}) {
    EXPECT_EQ(write(path, {{kExtendedAllow, two_, acl::kAllPermissions, 0}}), EACCES);
  }
  EXPECT_EQ(read(folder_), some_);
  EXPECT_EQ(read(folder_ + "/inside"), std::nullopt);
  ASSERT_EQ(subject_->attributes().apply(folder_, {"daemon", std::nullopt, std::nullopt}), 0);
  EXPECT_EQ(write(link, some_), 0);
}

TEST_P(AclContract, EachPermissionAndEachFlagIsKeptAlone) {
  for (const int tag : {kExtendedAllow, kExtendedDeny}) {
    Lines lines;
    for (const acl::Permission value : acl::kPermissions) lines.push_back({tag, one_, value, 0});
    for (const acl::Flag value : acl::kFlags)
      lines.push_back({tag, one_, acl::kReadData, value | acl::kDirectoryInherit});
    EXPECT_EQ(write(folder_, lines), 0);
    EXPECT_EQ(read(folder_), lines);
  }
}

TEST_P(AclContract, AllPermissionsAndAllFlagsAreKeptTogether) {
  const Lines lines = {{kExtendedAllow, one_, acl::kAllPermissions, acl::kAllFlags},
                       {kExtendedDeny, two_, acl::kAllPermissions, acl::kAllFlags}};
  EXPECT_EQ(write(folder_, lines), 0);
  EXPECT_EQ(read(folder_), lines);
}

TEST_P(AclContract, AnEntryWithoutPermissionsIsKept) {
  const Lines lines = {{kExtendedAllow, one_, 0, 0}, {kExtendedDeny, one_, 0, 0}};
  EXPECT_EQ(write(folder_, lines), 0);
  EXPECT_EQ(read(folder_), lines);
}

TEST_P(AclContract, NothingIsSortedOrMerged) {
  const Lines lines = {{kExtendedAllow, two_, acl::kReadData, 0},
                       {kExtendedDeny, one_, acl::kReadData, 0},
                       {kExtendedAllow, two_, acl::kReadData, 0},
                       {kExtendedAllow, one_, acl::kReadData, acl::kInherited},
                       {kExtendedDeny, one_, acl::kReadData, 0}};
  EXPECT_EQ(write(folder_, lines), 0);
  EXPECT_EQ(read(folder_), lines);
}

TEST_P(AclContract, AListReplacesTheWholeOneBefore) {
  EXPECT_EQ(write(folder_, some_), 0);
  const Lines other = {{kExtendedDeny, one_, acl::kWriteData, 0}};
  EXPECT_EQ(write(folder_, other), 0);
  EXPECT_EQ(read(folder_), other);
}

TEST_P(AclContract, WritingNewEmptyListRemovesStoredList) {
  EXPECT_EQ(write(folder_, some_), 0);
  EXPECT_EQ(write(folder_, Lines{}), 0);
  EXPECT_EQ(read(folder_), std::nullopt);
  EXPECT_EQ(write(folder_, Lines{}), 0) << "once more";
  EXPECT_EQ(read(folder_), std::nullopt);
}

TEST_P(AclContract, ReadListCanBeChangedAndWrittenBack) {
  EXPECT_EQ(write(folder_, some_), 0);
  acl::List* list = service().acl_get_file(folder_, kTypeExtended);
  ASSERT_NE(list, nullptr);
  acl::Entry* entry = nullptr;
  ASSERT_EQ(service().acl_get_entry(list, acl::kFirstEntry, entry), 0);
  ASSERT_EQ(service().acl_delete_entry(list, entry), 0);
  append(list, {kExtendedAllow, two_, acl::kChangeOwner, 0});
  EXPECT_EQ(write(folder_, list), 0);
  EXPECT_EQ(read(folder_), (Lines{some_.back(), {kExtendedAllow, two_, acl::kChangeOwner, 0}}));
}

TEST_P(AclContract, ChangingReadListLeavesFileUnchanged) {
  EXPECT_EQ(write(folder_, some_), 0);
  acl::List* list = service().acl_get_file(folder_, kTypeExtended);
  ASSERT_NE(list, nullptr);
  append(list, {kExtendedAllow, two_, acl::kReadData, 0});
  EXPECT_EQ(read(folder_), some_);
  EXPECT_EQ(write(file_, list), 0);
  EXPECT_EQ(read(folder_), some_);
}

TEST_P(AclContract, AnotherTypeIsInvalid) {
  for (const int type : {0, 1, 2, 255, 257, -256}) {
    errno = 0;
    EXPECT_EQ(service().acl_get_file(folder_, type), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(write(folder_, makeList(some_), type), EINVAL);
  }
  EXPECT_EQ(read(folder_), std::nullopt);
}

TEST_P(AclContract, MissingPathHasNoListAndRefusesOne) {
  EXPECT_EQ(read(missing_), std::nullopt);
  EXPECT_EQ(write(missing_, some_), ENOENT);
}

TEST_P(AclContract, LinksAreFollowed) {
  const std::string link = subject_->path("link");
  const std::string broken = subject_->path("broken");
  subject_->makeLink(link, folder_);
  subject_->makeLink(broken, missing_);
  EXPECT_EQ(write(link, some_), 0);
  EXPECT_EQ(read(folder_), some_);
  EXPECT_EQ(read(link), some_);
  EXPECT_EQ(read(broken), std::nullopt);
  EXPECT_EQ(write(broken, some_), ENOENT);
}

TEST_P(AclContract, AnInvalidListIsNotWritten) {
  EXPECT_EQ(write(folder_, some_), 0);
  acl::List* list = makeList(some_);
  acl::Entry* entry = nullptr;
  ASSERT_EQ(service().acl_create_entry(list, entry), 0);
  EXPECT_EQ(write(folder_, list), EINVAL);
  EXPECT_EQ(read(folder_), some_);
}

TEST_P(AclContract, AThousandEntriesAreAList) {
  Lines lines;
  for (int count = 0; count < 1000; ++count)
    lines.push_back({count % 2 == 0 ? kExtendedAllow : kExtendedDeny, one_, acl::kReadData, 0});
  const int error = write(folder_, lines);
  if (error == 0) {
    EXPECT_EQ(read(folder_), lines);
  } else {
    EXPECT_TRUE(error == ENOSPC || error == E2BIG) << error;
    EXPECT_EQ(read(folder_), std::nullopt);
  }
  lines.push_back(lines.front());
  EXPECT_EQ(write(folder_, lines), EINVAL);
}

TEST_P(AclContract, UndecodableStoredValueReadsAsInvalidList) {
  subject_->spoilAcl(folder_);
  acl::List* list = service().acl_get_file(folder_, kTypeExtended);
  ASSERT_NE(list, nullptr);
  errno = 0;
  EXPECT_EQ(service().acl_valid(list), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(linesOf(list).empty());
  EXPECT_EQ(write(file_, list), EINVAL);
  EXPECT_EQ(read(file_), std::nullopt);
}

TEST_P(AclContract, AnInvalidListCanBeReplaced) {
  subject_->spoilAcl(folder_);
  EXPECT_EQ(write(folder_, some_), 0);
  EXPECT_EQ(read(folder_), some_);
}

}  // namespace
}  // namespace paddock::contract
