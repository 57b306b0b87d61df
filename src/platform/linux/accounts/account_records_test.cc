#include "platform/linux/accounts/account_records.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(AccountLinesIndexing, KnowsNamesAndIdsOfPasswdAndGroup) {
  AccountLinesIndex index;
  index.add("root:x:0:0:root:/root:/bin/bash\nanna:x:1000:100::/home/anna:/bin/sh\n");
  index.add("staff:x:50:anna,bert\n");
  EXPECT_EQ(index.idOf("root"), 0U);
  EXPECT_EQ(index.idOf("anna"), 1000U);
  EXPECT_EQ(index.idOf("staff"), 50U);
  EXPECT_TRUE(index.has(1000));
  EXPECT_FALSE(index.has(100)) << "the group of a user is none of its ids";
  EXPECT_EQ(index.idOf("Anna"), std::nullopt);
  EXPECT_EQ(index.idOf(""), std::nullopt);
}

TEST(AccountLinesIndexing, TheLastLineNeedNotEnd) {
  AccountLinesIndex index;
  index.add("a:x:1:1::/:/bin/sh\nb:x:2");
  EXPECT_EQ(index.idOf("b"), 2U);
}

TEST(AccountLinesIndexing, FirstLinePerNameAndEveryIdCount) {
  AccountLinesIndex index;
  index.add("a:x:1:\na:x:2:\n");
  EXPECT_EQ(index.idOf("a"), 1U);
  EXPECT_TRUE(index.has(2));
}

TEST(AccountLinesIndexing, LinesThatAreNoAccountAreNone) {
  AccountLinesIndex index;
  index.add(
      "\n#a:x:1:\n+b:x:2:\n-c:x:3:\n+::::::\nd\ne:x\nf:x::\ng:x:h:\ni:x:-1:\nj:x:4294967296:\n:x:5:"
      "\n");
  for (const char* name : {"a", "#a", "b", "+b", "c", "-c", "+", "d", "e", "f", "g", "i", "j", ""})
    EXPECT_EQ(index.idOf(name), std::nullopt) << name;
  for (const std::uint32_t id : {0U, 1U, 2U, 3U, 5U}) EXPECT_FALSE(index.has(id)) << id;
}

TEST(AccountLinesIndexing, BytesThatAreNoTextDoNoHarm) {
  AccountLinesIndex index;
  index.add(std::string_view("\xff\0:x:7:\n:::::\n", 14));
  EXPECT_TRUE(index.has(7));
}

}  // namespace
}  // namespace paddock
