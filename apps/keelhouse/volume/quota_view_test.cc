#include "keelhouse/volume/quota_view.h"

#include <gtest/gtest.h>

#include <limits>

namespace paddock::keelhouse {
namespace {

Dictionary usage(const char* name, Value used, Value free, Value limit) {
  return {{"name", name},
          {"used", std::move(used)},
          {"free", std::move(free)},
          {"limit", std::move(limit)},
          {"type", 0}};
}

TEST(QuotaView, ListsUsersThenGroupsByDescendingUsage) {
  EXPECT_EQ(formatQuotas(
                "/srv", {{"isEnabled", true},
                         {"usr", Array{usage("bob", 1024, 2048, 3072), usage("anna", 5000000, 9, 0),
                                       usage("abel", 1024, 0, 512)}},
                         {"grp", Array{usage("staff", 10, 20, 30)}}}),
            "Quotas of /srv are on.\n"
            "KIND   NAME   USED     FREE     LIMIT\n"
            "user   anna   4.8 MiB  9 B      none\n"
            "user   abel   1.0 KiB  0 B      512 B\n"
            "user   bob    1.0 KiB  2.0 KiB  3.0 KiB\n"
            "group  staff  10 B     20 B     30 B\n");
}

TEST(QuotaView, ReportsDisabledQuotas) {
  EXPECT_EQ(formatQuotas("/srv", {{"isEnabled", false}}), "Quotas of /srv are off.\n");
  EXPECT_EQ(formatQuotas("/srv", {}), "Quotas of /srv are off.\n");
}

TEST(QuotaView, ReportsEmptyAccounting) {
  EXPECT_EQ(formatQuotas("/srv", {{"isEnabled", true}, {"usr", Array{}}}),
            "Quotas of /srv are on.\nNobody is counted there.\n");
  EXPECT_EQ(formatQuotas("/srv", {{"isEnabled", true}}), "Quotas of /srv are on.\n");
}

TEST(QuotaView, AcceptsLargestAmountsAndInvalidEntries) {
  const auto largest = Value::fromUnsigned(std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(formatQuotas("/\x1B",
                         {{"isEnabled", true},
                          {"usr", Array{usage("a\nb", largest, -1, largest), "x", Dictionary{}}}}),
            "Quotas of /\\x1B are on.\n"
            "KIND  NAME    USED    FREE  LIMIT\n"
            "user  a\\x0Ab  16 EiB  0 B   16 EiB\n"
            "user  -       0 B     0 B   none\n");
}

}  // namespace
}  // namespace paddock::keelhouse
