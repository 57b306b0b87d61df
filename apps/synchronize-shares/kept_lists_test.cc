#include "synchronize-shares/kept_lists.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "platform/linux/acl/nt_acl.h"
#include "support/temporary_folder.h"

namespace paddock::synchronizer {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kAttribute = "user.NTACL";
const nt_acl::Sid kSomebody{22, {1, 1001}};

nt_acl::Descriptor descriptor() {
  nt_acl::Descriptor made;
  made.owner = made.group = kSomebody;
  made.list = std::vector<nt_acl::Ace>{{nt_acl::kAllowed, 0, 0x1F01FF, kSomebody, {}}};
  return made;
}

// Version 3 without a hash, as smbd keeps it while it ignores the kernel's ACLs: 72 bytes more
// before the descriptor, whose four offsets count from the start.
std::string withoutHash() {
  const std::string one = nt_acl::encode(descriptor()).value();
  std::string value("\3\0\3\0\0\0\2\0\4\0\2\0\1\0", 14);
  value.resize(80);
  value += one.substr(8);
  for (const std::size_t at : {84U, 88U, 96U}) value[at] = static_cast<char>(value[at] + 72);
  return value;
}

class KeptLists : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(inside());
    if (::setxattr(root().c_str(), "user.probe", "", 0, 0) != 0)
      GTEST_SKIP() << "no attributes of users in " << root();
    writeWholeFile(file(), "");
  }
  std::string root() const { return folder_.path("share"); }
  std::string inside() const { return folder_.path("share/a/b"); }
  std::string file() const { return folder_.path("share/a/b/file"); }
  static void store(const std::string& path, const std::string& value) {
    ASSERT_EQ(::setxattr(path.c_str(), kAttribute, value.data(), value.size(), 0), 0);
  }
  static std::string stored(const std::string& path) {
    std::string value(4096, '\0');
    const ssize_t size = ::getxattr(path.c_str(), kAttribute, value.data(), value.size());
    value.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return value;
  }
  std::string keep(const ListKeeper::Limits& limits = {}) const {
    return ListKeeper(kAttribute, limits).keepBelow(root(), Served::byModes);
  }

  TestFolder folder_;
};

TEST_F(KeptLists, AreRewrittenInHashlessForm) {
  ASSERT_EQ(nt_acl::decode(withoutHash()), descriptor());
  for (const std::string& path : {root(), inside(), file()}) store(path, withoutHash());
  EXPECT_EQ(keep(), "");
  for (const std::string& path : {root(), inside(), file()})
    EXPECT_EQ(stored(path), nt_acl::encode(descriptor()).value()) << path;
}

TEST_F(KeptLists, CurrentListsAndInvalidDataStayUnchanged) {
  const std::string one = nt_acl::encode(descriptor()).value();
  store(root(), one);
  store(file(), "no list");
  EXPECT_EQ(keep(), "");
  EXPECT_EQ(stored(root()), one);
  EXPECT_EQ(stored(file()), "no list");
  EXPECT_EQ(stored(inside()), "");
}

TEST_F(KeptLists, LinksAreNotFollowed) {
  std::filesystem::create_directory(folder_.path("elsewhere"));
  store(folder_.path("elsewhere"), withoutHash());
  std::filesystem::create_directory_symlink(folder_.path("elsewhere"), root() + "/link");
  EXPECT_EQ(keep(), "");
  EXPECT_EQ(stored(folder_.path("elsewhere")), withoutHash());
}

TEST_F(KeptLists, ShareBehindForeignSymlinkIsSkippedAndReported) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving links to other users needs root";
  store(root(), withoutHash());
  const std::string link = folder_.path("link");
  std::filesystem::create_directory_symlink(root(), link);
  ASSERT_EQ(::lchown(link.c_str(), 1, 1), 0);
  EXPECT_THAT(ListKeeper(kAttribute, {}).keepBelow(link, Served::byModes),
              ::testing::HasSubstr(link + " is a symbolic link of daemon"));
  EXPECT_EQ(stored(root()), withoutHash());
}

TEST_F(KeptLists, OneThatDoesNotDecodeIsNamed) {
  std::string broken = withoutHash();
  broken.pop_back();
  store(file(), broken);
  EXPECT_THAT(keep(), AllOf(HasSubstr("cannot be written anew: "), HasSubstr(file())));
  EXPECT_EQ(stored(file()), broken);
}

TEST_F(KeptLists, AFewOfManyAreNamed) {
  std::string broken = withoutHash();
  broken.pop_back();
  for (int number = 0; number < 8; ++number) {
    const std::string path = root() + "/" + std::to_string(number);
    writeWholeFile(path, "");
    store(path, broken);
  }
  EXPECT_THAT(keep(), HasSubstr(" and 3 more"));
}

TEST_F(KeptLists, ExceededFileOrTimeLimitIsReported) {
  store(file(), withoutHash());
  EXPECT_THAT(keep({.objects = 2}), HasSubstr("too many files"));
  EXPECT_THAT(keep({.time = 0ms}), HasSubstr("too many files"));
  EXPECT_EQ(stored(file()), withoutHash());
  EXPECT_EQ(keep({.objects = 3}), "");
}

TEST_F(KeptLists, AFolderThatIsNotThereIsSaid) {
  std::filesystem::remove_all(root());
  EXPECT_THAT(keep(), AllOf(HasSubstr(root()), Not(HasSubstr("too many"))));
}

TEST(ServedBefore, MatchesSectionByNameAndPath) {
  const std::string text =
      "\n[Plans]\n    path = /srv/plans\n    acl_xattr:ignore system acls = yes\n"
      "\n[Films]\n    path = /srv/films\n    acl_xattr:ignore system acls = no\n\n[global]\n";
  EXPECT_EQ(servedBefore(text, "Plans", "/srv/plans"), Served::byModes);
  EXPECT_EQ(servedBefore(text, "Films", "/srv/films"), Served::byLists);
  EXPECT_EQ(servedBefore(text, "Films", "/srv/plans"), Served::unpublished);
  EXPECT_EQ(servedBefore(text, "Other", "/srv/films"), Served::unpublished);
  EXPECT_EQ(servedBefore("", "Plans", "/srv/plans"), Served::unpublished);
}

}  // namespace
}  // namespace paddock::synchronizer
