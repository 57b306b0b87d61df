// What file_attributes.h promises.
#include <gtest/gtest.h>

#include <cerrno>

#include "file_subject.h"

namespace paddock::contract {
namespace {

class FileAttributesContract : public ::testing::TestWithParam<FileKind> {
 protected:
  void SetUp() override {
    if (const std::string why = subject_->whyNot(); !why.empty()) GTEST_SKIP() << why;
    subject_->makeFile(file_);
    subject_->makeFolder(folder_);
  }

  FileAttributes read(const std::string& path) {
    FileAttributes attributes{"before", "before", 1, "before"};
    EXPECT_EQ(service().read(path, attributes), 0) << path;
    return attributes;
  }
  int errorOfReading(const std::string& path) {
    FileAttributes attributes{"before", "before", 1, "before"};
    const int error = service().read(path, attributes);
    EXPECT_FALSE(attributes.ownerName || attributes.groupName || attributes.permissions ||
                 attributes.type)
        << "something of " << path << " was read";
    return error;
  }
  int apply(const std::string& path, const FileAttributeChanges& changes) {
    return service().apply(path, changes);
  }
  void expectFile(const std::string& owner, const std::string& group, std::uint32_t mode) {
    const FileAttributes now = read(file_);
    EXPECT_EQ(now.ownerName, owner);
    EXPECT_EQ(now.groupName, group);
    EXPECT_EQ(now.permissions, mode);
  }
  FileAttributeService& service() { return subject_->attributes(); }

  std::unique_ptr<FileSubject> subject_ = GetParam().make();
  const std::string file_ = subject_->path("file");
  const std::string folder_ = subject_->path("folder");
  const std::string missing_ = subject_->path("missing");
};
INSTANTIATE_TEST_SUITE_P(FileAttributes, FileAttributesContract, ::testing::ValuesIn(kFileKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(FileAttributesContract, ReadsOwnerGroupModeAndType) {
  const FileAttributes file = read(file_);
  EXPECT_EQ(file.ownerName, "root");
  EXPECT_EQ(file.groupName, "root");
  EXPECT_EQ(file.permissions, 0644U);
  EXPECT_EQ(file.type, "regular");
  const FileAttributes folder = read(folder_);
  EXPECT_EQ(folder.permissions, 0755U);
  EXPECT_EQ(folder.type, "directory");
}

TEST_P(FileAttributesContract, FifoIsRecognizedWithoutBlocking) {
  const std::string fifo = subject_->path("fifo");
  subject_->makeFifo(fifo);
  EXPECT_EQ(read(fifo).type, "fifo");
  EXPECT_EQ(apply(fifo, {"daemon", std::nullopt, 0600}), 0);
  EXPECT_EQ(read(fifo).permissions, 0600U);
  EXPECT_EQ(read(fifo).ownerName, "daemon");
}

TEST_P(FileAttributesContract, UnnamedOwnerOrGroupIsAbsent) {
  subject_->giveToNobody(file_);
  const FileAttributes file = read(file_);
  EXPECT_EQ(file.ownerName, std::nullopt);
  EXPECT_EQ(file.groupName, std::nullopt);
  EXPECT_EQ(file.permissions, 0644U);
}

TEST_P(FileAttributesContract, LinksAreFollowed) {
  const std::string link = subject_->path("link");
  const std::string linkToLink = subject_->path("linkToLink");
  subject_->makeLink(link, file_);
  subject_->makeLink(linkToLink, link);
  EXPECT_EQ(read(linkToLink).type, "regular");
  EXPECT_EQ(apply(linkToLink, {"daemon", "daemon", 0600}), 0);
  expectFile("daemon", "daemon", 0600);
  EXPECT_TRUE(service().exists(linkToLink));
}

TEST_P(FileAttributesContract, WhatIsMissingIsSaidToBe) {
  const std::string broken = subject_->path("broken");
  subject_->makeLink(broken, missing_);
  for (const std::string& path : {missing_, broken}) {
    EXPECT_EQ(errorOfReading(path), ENOENT);
    EXPECT_EQ(apply(path, {std::nullopt, std::nullopt, 0600}), ENOENT);
    EXPECT_EQ(apply(path, {}), ENOENT);
    EXPECT_FALSE(service().exists(path));
  }
  EXPECT_TRUE(service().exists(file_));
  EXPECT_TRUE(service().exists(folder_));
}

TEST_P(FileAttributesContract, LinksInACircleLeadNowhere) {
  const std::string one = subject_->path("one");
  const std::string other = subject_->path("other");
  subject_->makeLink(one, other);
  subject_->makeLink(other, one);
  EXPECT_EQ(errorOfReading(one), ELOOP);
  EXPECT_EQ(apply(one, {std::nullopt, std::nullopt, 0600}), ELOOP);
  EXPECT_FALSE(service().exists(one));
}

TEST_P(FileAttributesContract, StrangersSymlinkIsReadButRefusesChanges) {
  const std::string link = subject_->path("link");
  subject_->makeLinkOfDaemon(link, folder_);
  subject_->makeFile(folder_ + "/inside");
  for (const std::string& path : {link, link + "/inside"}) {
    EXPECT_EQ(read(path).ownerName, "root");
    EXPECT_TRUE(service().exists(path));
    EXPECT_EQ(apply(path, {"daemon", "daemon", 0777}), EACCES);
    EXPECT_EQ(apply(path, {}), EACCES);
    const std::optional<RefusedLink> refused = service().refusedLink(path);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->path, link);
    EXPECT_EQ(refused->target, folder_);
    EXPECT_EQ(refused->ownerName, "daemon");
    EXPECT_FALSE(refused->leadsToObject);
  }
  EXPECT_EQ(read(folder_).permissions, 0755U);
  EXPECT_EQ(read(folder_ + "/inside").ownerName, "root");
  EXPECT_EQ(service().refusedLink(folder_ + "/inside"), std::nullopt);
  EXPECT_EQ(service().refusedLink(missing_), std::nullopt);
}

TEST_P(FileAttributesContract, ALinkToWhatItsOwnerOwnsCounts) {
  const std::string link = subject_->path("link");
  subject_->makeLinkOfDaemon(link, folder_);
  ASSERT_EQ(apply(folder_, {"daemon", std::nullopt, std::nullopt}), 0);
  EXPECT_EQ(service().refusedLink(link), std::nullopt);
  EXPECT_EQ(apply(link, {std::nullopt, std::nullopt, 0700}), 0);
  EXPECT_EQ(read(folder_).permissions, 0700U);
}

TEST_P(FileAttributesContract, SymlinkIsJudgedByFinalTarget) {
  const std::string first = subject_->path("first");
  const std::string second = subject_->path("second");
  subject_->makeLinkOfDaemon(first, second);
  subject_->makeLink(second, folder_);
  EXPECT_EQ(apply(first, {std::nullopt, std::nullopt, 0777}), EACCES);
  EXPECT_EQ(service().refusedLink(first)->path, first);
  EXPECT_EQ(apply(second, {"daemon", std::nullopt, 0711}), 0);
  EXPECT_EQ(apply(first, {std::nullopt, std::nullopt, 0700}), 0);
  EXPECT_EQ(read(folder_).permissions, 0700U);
}

TEST_P(FileAttributesContract, SymlinkBehindRootsSymlinkIsJudged) {
  const std::string first = subject_->path("first");
  const std::string second = subject_->path("second");
  subject_->makeLink(first, second);
  subject_->makeLinkOfDaemon(second, folder_);
  EXPECT_EQ(apply(first, {std::nullopt, std::nullopt, 0777}), EACCES);
  EXPECT_EQ(service().refusedLink(first)->path, second);
  EXPECT_EQ(read(folder_).permissions, 0755U);
}

TEST_P(FileAttributesContract, PathsThatNoObjectHas) {
  for (const std::string& path : {std::string(), file_ + std::string("\0", 1),
                                  file_ + std::string("\0x", 2), "/" + std::string(5000, 'p')}) {
    EXPECT_NE(errorOfReading(path), 0);
    EXPECT_NE(apply(path, {std::nullopt, std::nullopt, 0600}), 0);
    EXPECT_FALSE(service().exists(path));
  }
  expectFile("root", "root", 0644);
}

TEST_P(FileAttributesContract, AppliesTheWholeSet) {
  EXPECT_EQ(apply(file_, {"daemon", "daemon", 0750}), 0);
  expectFile("daemon", "daemon", 0750);
}

TEST_P(FileAttributesContract, WhatIsAbsentStaysAsItIs) {
  EXPECT_EQ(apply(file_, {"daemon", std::nullopt, std::nullopt}), 0);
  expectFile("daemon", "root", 0644);
  EXPECT_EQ(apply(file_, {std::nullopt, "daemon", std::nullopt}), 0);
  expectFile("daemon", "daemon", 0644);
  EXPECT_EQ(apply(file_, {std::nullopt, std::nullopt, 0}), 0);
  expectFile("daemon", "daemon", 0);
  EXPECT_EQ(apply(file_, {}), 0);
  expectFile("daemon", "daemon", 0);
}

TEST_P(FileAttributesContract, SetIdBitsFollowRequestedMode) {
  EXPECT_EQ(apply(file_, {"daemon", "daemon", 06755}), 0);
  expectFile("daemon", "daemon", 06755);
  EXPECT_EQ(apply(file_, {"root", "root", 06711}), 0);
  expectFile("root", "root", 06711);
  EXPECT_EQ(apply(folder_, {"daemon", "daemon", 03770}), 0);
  EXPECT_EQ(read(folder_).permissions, 03770U);
}

TEST_P(FileAttributesContract, ModeWithoutSpecialBitsPreservesThoseOfFolder) {
  EXPECT_EQ(apply(folder_, {std::nullopt, std::nullopt, 03770}), 0);
  EXPECT_EQ(apply(folder_, {"daemon", "daemon", 0750}), 0);
  EXPECT_EQ(read(folder_).permissions, 03750U);
  EXPECT_EQ(apply(folder_, {std::nullopt, std::nullopt, 02700}), 0);
  EXPECT_EQ(read(folder_).permissions, 02700U);
  EXPECT_EQ(apply(file_, {std::nullopt, std::nullopt, 06755}), 0);
  EXPECT_EQ(apply(file_, {std::nullopt, std::nullopt, 0755}), 0);
  EXPECT_EQ(read(file_).permissions, 0755U);
}

TEST_P(FileAttributesContract, AnUnknownNameIsInvalidAndChangesNothing) {
  const std::string nobody = "no-such-account-of-a-test";
  for (const FileAttributeChanges& changes :
       {FileAttributeChanges{nobody, "daemon", 0600}, FileAttributeChanges{"daemon", nobody, 0600},
        FileAttributeChanges{nobody, nobody, 0600}, FileAttributeChanges{"", "daemon", 0600},
        FileAttributeChanges{"daemon", "", 0600}}) {
    EXPECT_EQ(apply(file_, changes), EINVAL);
    expectFile("root", "root", 0644);
  }
}

}  // namespace
}  // namespace paddock::contract
