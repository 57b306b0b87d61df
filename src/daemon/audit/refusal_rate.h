// How many lines of the audit log refused requests get: otherwise whoever may do nothing could fill
// the disk with them.
//
// Of one user the first kLinesPerUser of a second have lines of their own, and the others one line
// with their number ("count"): the first of them as it was, "ms" the time from it to the last. The
// same of all users together beyond kLinesInAll, and of all whom kMostUsers leaves out one line
// without "uid". Not for several threads at once.
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

  // Whether the refused request has a line of its own; it is counted otherwise.
  bool take(const AuditEntry& entry, Clock::time_point now);
  // The lines of periods that are over, or of all.
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
