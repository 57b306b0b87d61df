#include "daemon/audit/refusal_rate.h"

#include <utility>

namespace paddock {

void RefusalRate::count(Period& period, const AuditEntry& entry) {
  if (!period.counted) {
    period.counted = entry;
    period.counted->count = 0;
    period.counted->duration = {};
  }
  ++period.counted->count;
  period.counted->duration =
      std::chrono::duration_cast<std::chrono::milliseconds>(entry.time - period.counted->time);
}

bool RefusalRate::take(const AuditEntry& entry, Clock::time_point now) {
  if (inAll_.start + kPeriod <= now) inAll_ = {now, 0, {}};
  auto found = users_.find(entry.peer.uid);
  if (found == users_.end() && users_.size() >= kMostUsers) {
    if (!others_.counted) others_.start = now;
    count(others_, entry);
    others_.counted->ofSeveralUsers = true;
    return false;
  }
  if (found == users_.end()) found = users_.emplace(entry.peer.uid, Period{now, 0, {}}).first;
  Period& period = found->second;
  if (period.lines >= kLinesPerUser || inAll_.lines >= kLinesInAll) {
    count(period, entry);
    return false;
  }
  ++period.lines;
  ++inAll_.lines;
  return true;
}

template <typename IsOver>
std::vector<AuditEntry> RefusalRate::take(IsOver isOver) {
  std::vector<AuditEntry> lines;
  const auto end = [&lines](Period& period) {
    if (period.counted) lines.push_back(*std::exchange(period.counted, std::nullopt));
  };
  for (auto& [user, period] : users_)
    if (isOver(period)) end(period);
  std::erase_if(users_, [&isOver](const auto& user) { return isOver(user.second); });
  if (isOver(others_)) end(others_);
  return lines;
}

std::vector<AuditEntry> RefusalRate::due(Clock::time_point now) {
  return take([now](const Period& period) { return period.start + kPeriod <= now; });
}

std::vector<AuditEntry> RefusalRate::all() {
  return take([](const Period&) { return true; });
}

}  // namespace paddock
