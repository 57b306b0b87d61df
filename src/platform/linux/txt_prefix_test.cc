#include "platform/linux/txt_prefix.h"

#include <gtest/gtest.h>

namespace paddock::dns_sd {
namespace {

Data record(std::initializer_list<std::size_t> lengths) {
  Data data;
  for (const std::size_t length : lengths) {
    data.bytes.push_back(static_cast<std::uint8_t>(length));
    data.bytes.insert(data.bytes.end(), length, 'x');
  }
  return data;
}

TEST(TxtPrefixTest, OneThatFitsIsAllOfIt) {
  const Data data = record({10, 20});
  const TxtPrefix prefix = txtPrefix(data, 32);
  EXPECT_EQ(prefix.data, data);
  EXPECT_EQ(prefix.strings, 2U);
  EXPECT_EQ(prefix.leftOut, 0U);
}

TEST(TxtPrefixTest, OneByteTooManyLeavesTheLastStringOut) {
  const TxtPrefix prefix = txtPrefix(record({10, 20}), 31);
  EXPECT_EQ(prefix.data, record({10}));
  EXPECT_EQ(prefix.strings, 1U);
  EXPECT_EQ(prefix.leftOut, 1U);
}

TEST(TxtPrefixTest, NoStringIsTakenAfterOneThatWasLeftOut) {
  const TxtPrefix prefix = txtPrefix(record({10, 200, 5}), 30);
  EXPECT_EQ(prefix.data, record({10}));
  EXPECT_EQ(prefix.leftOut, 2U);
}

TEST(TxtPrefixTest, AnEmptyRecordStaysEmpty) {
  const TxtPrefix prefix = txtPrefix({}, 30);
  EXPECT_EQ(prefix.data, Data{});
  EXPECT_EQ(prefix.strings, 0U);
  EXPECT_EQ(prefix.leftOut, 0U);
}

}  // namespace
}  // namespace paddock::dns_sd
