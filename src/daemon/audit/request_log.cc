#include "daemon/audit/request_log.h"

#include <syslog.h>

#include <algorithm>
#include <utility>

namespace paddock {
namespace {

constexpr std::size_t kBytesBesideText = sizeof(LoggedLine);
// Maximum nesting of requests by programs of requests; a deeper one is a loop.
constexpr int kDeepest = 16;

// Its beginning, up to the last character that fits.
std::string cut(const std::string& text) {
  if (text.size() <= RequestLog::kLineBytes) return text;
  std::size_t size = RequestLog::kLineBytes;
  constexpr unsigned kContinuation = 0x80U;
  constexpr unsigned kKind = 0xc0U;
  const auto continues = [&text](std::size_t at) {
    return (static_cast<unsigned char>(text[at]) & kKind) == kContinuation;
  };
  while (size > 0 && continues(size)) --size;
  return text.substr(0, size) + "...";
}

}  // namespace

void RequestLog::begin(const std::string& id, uid_t user, const std::string& parent) {
  const MutexLock lock(mutex_);
  entries_.insert_or_assign(id, Entry{{user, {}}, parent, 0, 0, {}});
}

void RequestLog::end(const std::string& id, bool stranger) {
  const MutexLock lock(mutex_);
  std::deque<std::string>& ended = ended_.at(stranger ? 1 : 0);
  ended.push_back(id);
  if (ended.size() <= kKeptRequests) return;
  entries_.erase(ended.front());
  ended.pop_front();
}

void RequestLog::add(const std::string& id, int priority, const std::string& text) {
  const LoggedLine line{std::chrono::system_clock::now(), priority, cut(text)};
  const MutexLock lock(mutex_);
  auto found = entries_.find(id);
  for (int depth = 0; depth < kDeepest && found != entries_.end(); ++depth) {
    keep(found->second, line);
    found = entries_.find(found->second.parent);
  }
}

void RequestLog::keep(Entry& entry, LoggedLine line) {
  const std::size_t limit = line.priority <= LOG_WARNING ? kRequestBytes : kRequestBytes / 2;
  const std::size_t bytes = line.text.size() + kBytesBesideText;
  if (bytes > limit - std::min(limit, entry.bytes)) {
    ++entry.leftOut;
    entry.lastLeftOut = line.time;
    return;
  }
  entry.bytes += bytes;
  entry.request.lines.push_back(std::move(line));
}

std::optional<LoggedRequest> RequestLog::find(const std::string& id) const {
  const MutexLock lock(mutex_);
  const auto found = entries_.find(id);
  if (found == entries_.end()) return std::nullopt;
  const Entry& entry = found->second;
  LoggedRequest request = entry.request;
  if (entry.leftOut > 0) {
    request.lines.push_back({entry.lastLeftOut, LOG_WARNING,
                             "lines of this request that are in the daemon's log alone: " +
                                 std::to_string(entry.leftOut)});
  }
  return request;
}

std::string_view levelOfPriority(int priority) {
  if (priority <= LOG_ERR) return "error";
  if (priority == LOG_WARNING) return "warning";
  return priority == LOG_DEBUG ? "debug" : "info";
}

}  // namespace paddock
