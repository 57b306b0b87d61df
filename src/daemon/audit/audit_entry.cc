#include "daemon/audit/audit_entry.h"

#include <array>
#include <ctime>
#include <utility>

#include "base/value.h"
#include "wire/json.h"

namespace paddock {
namespace {

void describe(const AuditSubject& subject, Dictionary& line) {
  if (!subject.paths.empty()) {
    line.set("paths", Array(subject.paths.begin(), subject.paths.end()));
  }
  for (const auto& [key, value] :
       {std::pair{"path", &subject.path}, std::pair{"node", &subject.node},
        std::pair{"type", &subject.type}, std::pair{"name", &subject.name}}) {
    if (*value) line.set(key, **value);
  }
}

// What is known of a request before it is answered.
Dictionary begunOf(const AuditEntry& entry) {
  Dictionary line{{"time", timeText(entry.time)},
                  {"request", entry.request},
                  {"plugin", entry.plugin},
                  {"operation", entry.operation}};
  if (!entry.ofSeveralUsers) {
    line.set("uid", entry.peer.uid);
    line.set("pid", entry.peer.process);
    if (entry.peer.loginUser) line.set("loginuid", *entry.peer.loginUser);
  }
  describe(entry.subject, line);
  if (!entry.parent.empty()) line.set("parent", entry.parent);
  return line;
}

}  // namespace

std::string timeText(std::chrono::system_clock::time_point time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time - seconds).count();
  const std::time_t number = std::chrono::system_clock::to_time_t(seconds);
  std::tm parts{};
  ::gmtime_r(&number, &parts);
  std::array<char, 32> date{};
  std::array<char, 8> fraction{};
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(fraction.data(), fraction.size(), ".%03dZ", static_cast<int>(milliseconds));
  return std::string(date.data()) + fraction.data();
}

std::string auditLine(const AuditEntry& entry) {
  Dictionary line = begunOf(entry);
  line.set("ms", std::int64_t{entry.duration.count()});
  if (entry.status) {
    line.set("status", *entry.status);
  } else {
    line.set("refused", true);
  }
  if (entry.count > 0) line.set("count", entry.count);
  return wire::writeJson(line) + "\n";
}

std::string begunLine(const AuditEntry& entry) { return wire::writeJson(begunOf(entry)) + "\n"; }

std::optional<std::string> interruptedLine(const std::string& begun) {
  if (!begun.ends_with('\n')) return std::nullopt;
  std::string problem;
  auto value = wire::parseJson(begun, problem);
  Dictionary* line = value ? value->dictionary() : nullptr;
  if (line == nullptr) return std::nullopt;
  line->set("interrupted", true);
  return wire::writeJson(*line) + "\n";
}

}  // namespace paddock
