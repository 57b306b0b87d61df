#include "keelhouse/raw_commands.h"

#include <gtest/gtest.h>

#include <limits>

namespace paddock::keelhouse {
namespace {

TEST(ReplyLeaves, PutStatusFirst) {
  EXPECT_EQ(formatLeaves("vsp", {{"a", 1}, {"status", 0}, {"z", 2}}),
            "vsp:status = 0\nvsp:a = 1\nvsp:z = 2\n");
}

TEST(ReplyLeaves, WriteOneLinePerLeafWithPath) {
  EXPECT_EQ(formatLeaves(
                "sharing",
                {{"sharePointList", Array{Dictionary{{"path", "/srv/a"}, {"isSharedOverVSP", true}},
                                          Dictionary{{"path", "/srv/b"}}}}}),
            "sharing:sharePointList:0:isSharedOverVSP = true\n"
            "sharing:sharePointList:0:path = \"/srv/a\"\n"
            "sharing:sharePointList:1:path = \"/srv/b\"\n");
}

TEST(ReplyLeaves, ListElementsInNumericOrder) {
  Array eleven;
  for (int at = 0; at < 11; ++at) eleven.emplace_back(at);
  const std::string lines = formatLeaves("x", {{"a", eleven}});
  EXPECT_LT(lines.find("x:a:2 = 2\n"), lines.find("x:a:10 = 10\n"));
}

TEST(ReplyLeaves, WriteEveryLeafKind) {
  EXPECT_EQ(formatLeaves("x", {{"b", false},
                               {"d", Data{{'f'}}},
                               {"m", -1},
                               {"s", "a\"b\\\n\x1B"},
                               {"u", std::numeric_limits<std::uint64_t>::max()}}),
            "x:b = false\nx:d = {\"$data\":\"Zg==\"}\nx:m = -1\nx:s = \"a\\\"b\\\\\\n\\u001b\"\n"
            "x:u = 18446744073709551615\n");
}

TEST(ReplyLeaves, OmitEmptyContainers) {
  EXPECT_EQ(formatLeaves("x", {{"a", Array{}}, {"d", Dictionary{}}}), "");
  EXPECT_EQ(formatLeaves("x", {}), "");
}

TEST(ReplyLeaves, KeepContainerStatusInKeyOrder) {
  EXPECT_EQ(formatLeaves("x", {{"a", 1}, {"status", Dictionary{{"k", 2}}}}),
            "x:a = 1\nx:status:k = 2\n");
  EXPECT_EQ(formatLeaves("x", {{"status", "completed"}, {"a", 1}}),
            "x:status = \"completed\"\nx:a = 1\n");
}

TEST(ReplyLeaves, EscapeLineFeedsInKeys) {
  EXPECT_EQ(formatLeaves("x", {{"a\nb", 1}}), "x:a\\x0Ab = 1\n");
}

}  // namespace
}  // namespace paddock::keelhouse
