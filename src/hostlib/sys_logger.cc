#include "paddock/sys_logger.h"

#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <unordered_map>

#include "base/mutex.h"
#include "base/system_call.h"
#include "base/text.h"

namespace paddock {
namespace {

constexpr int kPriorityMask = 7;
constexpr int kDebugPriority = 7;

Mutex gSinkMutex;
std::atomic<bool> gDebugLogging{false};
std::atomic<std::uint64_t> gNextLogger{1};

thread_local std::string tRequestId;
thread_local std::unordered_map<std::uint64_t, std::string> tPrefixes;

// Never destroyed: a thread that waits for a program may still log while the process ends.
template <typename Sink>
std::shared_ptr<const Sink>& installedSink() PADDOCK_REQUIRES(gSinkMutex) {
  static auto& sink = *new std::shared_ptr<const Sink>;
  return sink;
}

template <typename Sink>
std::shared_ptr<const Sink> currentSink() {
  const MutexLock lock(gSinkMutex);
  return installedSink<Sink>();
}

template <typename Sink>
void installSink(Sink sink) {
  auto installed = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
  const MutexLock lock(gSinkMutex);
  installedSink<Sink>().swap(installed);
}

}  // namespace

void installLogSink(LogSink sink) { installSink(std::move(sink)); }

void installRequestLineSink(RequestLineSink sink) { installSink(std::move(sink)); }

LogSink standardErrorSink() {
  return [](int priority, const std::string& line) {
    const std::string text = "<" + std::to_string(priority) + ">" + line + "\n";
    std::string_view rest(text);
    while (!rest.empty()) {
      const auto written =
          retryOnInterrupt([rest] { return ::write(STDERR_FILENO, rest.data(), rest.size()); });
      if (written <= 0) return;
      rest.remove_prefix(static_cast<std::size_t>(written));
    }
  };
}

void setDebugLogging(bool on) { gDebugLogging.store(on, std::memory_order_relaxed); }

void logMessage(int priority, std::string_view text) {
  const int level = priority & kPriorityMask;
  if (level == kDebugPriority && !gDebugLogging.load(std::memory_order_relaxed)) return;
  // syslog(3) takes a newline at the end for the end of the line.
  if (text.ends_with('\n')) text.remove_suffix(1);
  // One message is one line, whatever names are in it.
  std::string line = printable(text);
  if (!tRequestId.empty()) {
    if (const auto sink = currentSink<RequestLineSink>()) (*sink)(tRequestId, level, line);
    line.append(" [request ").append(tRequestId).append("]");
  }
  if (const auto sink = currentSink<LogSink>()) {
    (*sink)(level, line);
  } else {
    ::syslog(LOG_DAEMON | level, "%s", line.c_str());
  }
}

RequestIdScope::RequestIdScope(std::string id) : previous_(std::move(tRequestId)) {
  tRequestId = std::move(id);
}

RequestIdScope::~RequestIdScope() { tRequestId = std::move(previous_); }

const std::string& currentRequestId() { return tRequestId; }

SysLogger::SysLogger() : SysLogger(LogSink(logMessage)) {}

SysLogger::SysLogger(LogSink write)
    : write_(std::move(write)), number_(gNextLogger.fetch_add(1, std::memory_order_relaxed)) {}

void SysLogger::setPrefix(std::string prefix) { tPrefixes[number_] = std::move(prefix); }

const std::string& SysLogger::prefix() const { return tPrefixes[number_]; }

void SysLogger::log(int priority, std::string_view text) const {
  write_(priority, std::string(prefix()).append(" ").append(text));
}

}  // namespace paddock
