// Volume quotas for people.
#pragma once

#include <cstdint>
#include <string>

#include "base/value.h"

namespace paddock::keelhouse {

// What the kernel keeps of a volume's users and groups, for people.

// For people: whether limits hold, and a table of users and groups, those who use most first, with
// a remark on those who are near a limit or above one. `usage` is a reply of getUsage.
std::string formatUsage(const std::string& volume, const Dictionary& usage);

// The line of one entry alone, with the names of its columns above.
std::string formatLimits(const Dictionary& entry, bool isGroup);

// "over the soft limit, 6 days left", "93 % of the limit": what should be known of an amount.
// Empty when nothing should. `now` and `graceEnd` are seconds of one clock, `graceEnd` 0 when no
// grace runs.
struct LimitedAmount {
  std::uint64_t used = 0;
  std::uint64_t soft = 0;
  std::uint64_t hard = 0;
  std::uint64_t graceEnd = 0;
};
std::string limitRemark(const LimitedAmount& amount, std::uint64_t now, bool isEnforced);

// Whether quotas are enforced on the volume, and a table of users and groups, those who use most
// first: name, used, free, limit.
std::string formatQuotas(const std::string& volume, const Dictionary& quotas);

}  // namespace paddock::keelhouse
