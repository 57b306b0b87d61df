// Rate limit of audit lines for refused requests: otherwise users without rights could fill the
// disk.
//
// Of one user the first kLinesPerUser of a second have lines of their own, and the others one line
// with their number ("count"): the first of them as it was, "ms" the time from it to the last. The
// same of all users together beyond kLinesInAll, and of all whom kMostUsers leaves out one line
// without "uid". Not thread-safe.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <vector>

#include "daemon/audit/audit_entry.h"

namespace paddock {

class RefusalRate {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::size_t kLinesPerUser = 10;
  static constexpr std::size_t kLinesInAll = 100;
  static constexpr std::size_t kMostUsers = 64;
  static constexpr std::chrono::seconds kPeriod{1};

  // Whether the refused request gets a line of its own; otherwise it is counted.
  bool take(const AuditEntry& entry, Clock::time_point now);
  // The lines of expired periods, or of all.
  std::vector<AuditEntry> due(Clock::time_point now);
  std::vector<AuditEntry> all();

 private:
  struct Period {
    Clock::time_point start;
    std::size_t lines = 0;
    std::optional<AuditEntry> counted;
  };

  static void count(Period& period, const AuditEntry& entry);
  template <typename IsOver>
  std::vector<AuditEntry> take(IsOver isOver);

  std::map<uid_t, Period> users_;
  Period inAll_;   // only its lines count
  Period others_;  // of users beyond kMostUsers
};

}  // namespace paddock
