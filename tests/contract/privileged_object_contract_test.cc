// What privileged_object.h promises.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "file_subject.h"

namespace paddock::contract {
namespace {

constexpr std::uint32_t kUnchanged = PrivilegedObject::kUnchanged;

class PrivilegedObjectContract : public ::testing::TestWithParam<FileKind> {
 protected:
  using Owners = std::pair<std::uint32_t, std::uint32_t>;

  void SetUp() override {
    if (const std::string why = subject_->whyNot(); !why.empty()) GTEST_SKIP() << why;
    subject_->makeFile(file_);
    subject_->makeFolder(folder_);
  }

  std::unique_ptr<PrivilegedObject> open(const std::string& path) {
    std::unique_ptr<PrivilegedObject> object;
    EXPECT_EQ(subject_->objects().open(path, PathUse::changing, object), 0) << path;
    return object;
  }
  mode_t modeOf(const std::string& path) {
    mode_t mode = 0;
    EXPECT_EQ(open(path)->readMode(mode), 0);
    return mode;
  }
  struct Release {
    acl::AclService& service;
    void operator()(acl::List* list) const { (void)service.acl_free(list); }
  };
  using List = std::unique_ptr<acl::List, Release>;

  acl::AclService& service() { return subject_->acl(); }
  List owned(acl::List* list) { return {list, Release{service()}}; }
  // With as many entries as that; those of a tag that no entry has, too.
  List listOf(std::uint8_t count, int tag = acl::kExtendedAllow) {
    List list = owned(service().acl_init(1));
    for (std::uint8_t number = 1; number <= count; ++number) {
      acl::Entry* entry = nullptr;
      EXPECT_EQ(service().acl_create_entry(list.get(), entry), 0);
      entry->tag = tag;
      Guid guid{};
      guid.bytes[0] = 0xDE;
      guid.bytes[15] = number;
      EXPECT_EQ(service().acl_set_qualifier(entry, guid), 0);
    }
    return list;
  }

  std::unique_ptr<FileSubject> subject_ = GetParam().make();
  const std::string file_ = subject_->path("file");
  const std::string folder_ = subject_->path("folder");
  const std::string missing_ = subject_->path("missing");
};
INSTANTIATE_TEST_SUITE_P(PrivilegedObject, PrivilegedObjectContract,
                         ::testing::ValuesIn(kFileKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(PrivilegedObjectContract, WhatIsNotThereIsNoObject) {
  std::unique_ptr<PrivilegedObject> object = open(file_);
  EXPECT_EQ(subject_->objects().open(missing_, PathUse::changing, object), ENOENT);
  EXPECT_EQ(object, nullptr);
}

TEST_P(PrivilegedObjectContract, TheModeComesWithTheType) {
  const std::string fifo = subject_->path("fifo");
  subject_->makeFifo(fifo);
  EXPECT_EQ(modeOf(file_), S_IFREG | 0644U);
  EXPECT_EQ(modeOf(folder_), S_IFDIR | 0755U);
  EXPECT_EQ(modeOf(fifo) & S_IFMT, static_cast<mode_t>(S_IFIFO));
}

TEST_P(PrivilegedObjectContract, SettingModeAppliesAllBitsExceptType) {
  for (const mode_t mode : {07751U, 0U, 0600U}) {
    EXPECT_EQ(open(file_)->changeMode(mode), 0);
    EXPECT_EQ(modeOf(file_), S_IFREG | mode);
    EXPECT_EQ(open(folder_)->changeMode(S_IFREG | mode), 0);
    EXPECT_EQ(modeOf(folder_), S_IFDIR | mode);
  }
}

TEST_P(PrivilegedObjectContract, OwnerAndGroupAreChangedEachAlone) {
  EXPECT_EQ(open(file_)->changeOwner(7, kUnchanged), 0);
  EXPECT_EQ(subject_->owners(file_), Owners(7, 0));
  EXPECT_EQ(open(file_)->changeOwner(kUnchanged, 8), 0);
  EXPECT_EQ(subject_->owners(file_), Owners(7, 8));
  EXPECT_EQ(open(file_)->changeOwner(9, 10), 0);
  EXPECT_EQ(subject_->owners(file_), Owners(9, 10));
}

TEST_P(PrivilegedObjectContract, LinksAreFollowed) {
  const std::string link = subject_->path("link");
  subject_->makeLink(link, file_);
  EXPECT_EQ(open(link)->changeMode(0600), 0);
  EXPECT_EQ(modeOf(file_), S_IFREG | 0600U);
}

TEST_P(PrivilegedObjectContract, AStrangersLinkIsForReadingAlone) {
  const std::string link = subject_->path("link");
  subject_->makeLinkOfDaemon(link, folder_);
  std::unique_ptr<PrivilegedObject> object = open(file_);
  EXPECT_EQ(subject_->objects().open(link, PathUse::changing, object), EACCES);
  EXPECT_EQ(object, nullptr);
  ASSERT_EQ(subject_->objects().open(link, PathUse::reading, object), 0);
  mode_t mode = 0;
  EXPECT_EQ(object->readMode(mode), 0);
  EXPECT_EQ(mode, S_IFDIR | 0755U);
}

TEST_P(PrivilegedObjectContract, ALinkToWhatItsOwnerOwnsCounts) {
  const std::string link = subject_->path("link");
  subject_->makeLinkOfDaemon(link, file_);
  ASSERT_EQ(subject_->attributes().apply(file_, {"daemon", std::nullopt, std::nullopt}), 0);
  EXPECT_EQ(open(link)->changeMode(0600), 0);
  EXPECT_EQ(modeOf(file_), S_IFREG | 0600U);
}

TEST_P(PrivilegedObjectContract, WithoutAListThereIsNone) {
  for (const std::string& path : {file_, folder_}) {
    const auto object = open(path);
    errno = 0;
    EXPECT_EQ(object->getAcl(), nullptr);
    EXPECT_EQ(errno, ENOENT);
  }
}

TEST_P(PrivilegedObjectContract, AListThatIsWrittenIsRead) {
  const auto object = open(file_);
  ASSERT_EQ(object->setAcl(listOf(2).get()), 0);
  const List read = owned(object->getAcl());
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(service().acl_valid(read.get()), 0);
  EXPECT_EQ(read->entries.size(), 2U);
}

TEST_P(PrivilegedObjectContract, WritingNewEmptyListRemovesStoredList) {
  const auto object = open(file_);
  ASSERT_EQ(object->setAcl(listOf(2).get()), 0);
  ASSERT_EQ(object->setAcl(listOf(0).get()), 0);
  EXPECT_EQ(object->getAcl(), nullptr);
}

TEST_P(PrivilegedObjectContract, AnInvalidListIsNotWritten) {
  const auto object = open(file_);
  const List list = listOf(1, acl::kUndefinedTag);
  errno = 0;
  EXPECT_EQ(object->setAcl(list.get()), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(object->getAcl(), nullptr);
}

TEST_P(PrivilegedObjectContract, UndecodableStoredValueReadsAsInvalidList) {
  subject_->spoilAcl(file_);
  const List list = owned(open(file_)->getAcl());
  ASSERT_NE(list, nullptr);
  EXPECT_NE(service().acl_valid(list.get()), 0);
}

}  // namespace
}  // namespace paddock::contract
