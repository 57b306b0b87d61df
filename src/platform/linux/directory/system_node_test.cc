#include "platform/linux/directory/system_node.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/directory.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/directory/system_records.h"

namespace paddock {
namespace {

constexpr auto kExact = MatchType::caseInsensitiveExact;

std::optional<std::string> realNameOf(const std::string& name) {
  return makeSystemNode({})
      ->findRecord(name, schema::kUsers)
      ->getAttributeFirstValue(schema::kRealName);
}

TEST(SystemNodeListing, RealNameIsCommentUpToFirstComma) {
  for (const NssUser& user : nssUsers()) {
    const std::string expected = user.comment.substr(0, user.comment.find(','));
    if (expected.empty())
      EXPECT_FALSE(realNameOf(user.name)) << user.name;
    else
      EXPECT_EQ(realNameOf(user.name), expected) << user.name;
  }
}

TEST(SystemNodeListing, NameServiceUsersAndGroupsKeepListingOrder) {
  std::vector<std::string> expected;
  for (const NssUser& user : nssUsers()) expected.push_back(user.name);
  std::vector<std::string> listed;
  for (const Value& answer : makeSystemNode({})->findRecordNames(kRecordsAll, {schema::kRecordName},
                                                                 schema::kUsers, kExact))
    listed.push_back(*answer.dictionary()->array(schema::kRecordName)->front().string());
  EXPECT_EQ(listed, expected);
  EXPECT_EQ(makeSystemNode({})
                ->findRecordNames(kRecordsAll, {kAttributesAll}, schema::kGroups, kExact)
                .size(),
            nssGroups().size());
}

TEST(SystemNodeListing, UsersAndGroupsAreSearchedTogether) {
  const Array answers = makeSystemNode({})->findRecordsOfTypes({schema::kGroups, schema::kUsers},
                                                               schema::kRecordName, "root", kExact);
  EXPECT_EQ(answers.size(), 2U);
}

TEST(SystemNodeListing, EnumeratingInParallelGivesEveryoneEachTime) {
  const std::size_t users = nssUsers().size();
  const std::size_t groups = nssGroups().size();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(nssUsers().size(), users);
        EXPECT_EQ(nssGroups().size(), groups);
      }
    });
  for (std::thread& thread : threads) thread.join();
}

TEST(SystemNodeListing, AuthenticatesThroughPam) {
  std::string folder = (std::filesystem::temp_directory_path() / "paddock.XXXXXX").string();
  ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  std::ofstream(folder + "/permitting") << "auth required pam_permit.so\n"
                                           "account required pam_permit.so\n";
  std::ofstream(folder + "/denying") << "auth required pam_deny.so\n"
                                        "account required pam_permit.so\n";
  const auto permitting = makeSystemNode(PamOptions{"permitting", folder});
  EXPECT_EQ(permitting->authenticateName("root", "x", false), 0);
  EXPECT_EQ(permitting->authenticateName("root", "", false), EACCES);
  EXPECT_EQ(makeSystemNode(PamOptions{"denying", folder})->authenticateName("root", "x", false),
            EACCES);
  std::filesystem::remove_all(folder);
}

TEST(SystemNodeListing, WithoutPamItCannotAuthenticate) {
  try {
    makeSystemNode({})->authenticateName("root", "x", true);
    FAIL();
  } catch (const DirectoryError& error) {
    EXPECT_EQ(error.status(), ENOTSUP);
  }
}

}  // namespace
}  // namespace paddock
