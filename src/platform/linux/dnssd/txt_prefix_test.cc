#include "platform/linux/dnssd/txt_prefix.h"

#include <gtest/gtest.h>

#include "support/own_mounts.h"
#include "support/run_to_end.h"

namespace paddock::dns_sd {
namespace {

void link(std::vector<std::string> words) {
  words.insert(words.begin(), {"/sbin/ip", "link"});
  const EndedProgram ended = runProgram(words);
  ASSERT_EQ(ended.status, 0) << ended.error;
}

// An interface that is up, its other end down.
void addCable(const std::string& name, const std::string& packet) {
  link({"add", name, "mtu", packet, "type", "veth", "peer", "name", name + "end"});
  link({"set", name, "up"});
}

Data record(std::initializer_list<std::size_t> lengths) {
  Data data;
  for (const std::size_t length : lengths) {
    data.bytes.push_back(static_cast<std::uint8_t>(length));
    data.bytes.insert(data.bytes.end(), length, 'x');
  }
  return data;
}

TEST(TxtRecordPrefix, OneThatFitsIsAllOfIt) {
  const Data data = record({10, 20});
  const TxtPrefix prefix = txtPrefix(data, 32);
  EXPECT_EQ(prefix.data, data);
  EXPECT_EQ(prefix.strings, 2U);
  EXPECT_TRUE(prefix.leftOut.empty());
}

TEST(TxtRecordPrefix, OneByteTooManyOmitsLastString) {
  const TxtPrefix prefix = txtPrefix(record({10, 20}), 31);
  EXPECT_EQ(prefix.data, record({10}));
  EXPECT_EQ(prefix.strings, 1U);
  EXPECT_EQ(prefix.leftOut, (std::vector<std::string>{std::string(20, 'x')}));
}

TEST(TxtRecordPrefix, NoStringFollowsOmittedOne) {
  const TxtPrefix prefix = txtPrefix(record({10, 200, 5}), 30);
  EXPECT_EQ(prefix.data, record({10}));
  EXPECT_EQ(prefix.leftOut.size(), 2U);
}

TEST(TxtRecordPrefix, AnEmptyRecordStaysEmpty) {
  const TxtPrefix prefix = txtPrefix({}, 30);
  EXPECT_EQ(prefix.data, Data{});
  EXPECT_EQ(prefix.strings, 0U);
  EXPECT_TRUE(prefix.leftOut.empty());
}

TEST(TxtRecordPrefix, RecordFillsNetworkPacketsUpTo8900Bytes) {
  EXPECT_EQ(mostTxtBytes(1500), 1300U);
  EXPECT_EQ(mostTxtBytes(9000), 8800U);
  EXPECT_EQ(mostTxtBytes(9100), 8900U);
  EXPECT_EQ(mostTxtBytes(65536), 8900U);
  EXPECT_EQ(mostTxtBytes(100), 0U);
}

TEST(TxtRecordPrefix, SmallestPacketCountsOnlyActiveNetworks) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([] {
    ASSERT_EQ(::unshare(CLONE_NEWNET), 0);
    link({"set", "lo", "up"});
    EXPECT_EQ(smallestPacket(), 1500U) << "the loopback is none";
    addCable("wide", "9000");
    EXPECT_EQ(smallestPacket(), 9000U);
    addCable("narrow", "1400");
    EXPECT_EQ(smallestPacket(), 1400U);
    link({"set", "narrow", "down"});
    EXPECT_EQ(smallestPacket(), 9000U);
  });
}

}  // namespace
}  // namespace paddock::dns_sd
