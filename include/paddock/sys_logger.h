// The system log.
//
// Priorities are the numbers of syslog(3): 3 error, 4 warning, 6 information, 7 debug; other
// numbers are passed on with their lowest three bits. Every line carries the id of the request
// that caused it, when the calling thread is serving one. Control characters in a text are
// written as \xNN, so that one message is one line; a newline at its end is left out. Any thread
// may log.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace paddock {

// Log lines by request, for a collector that keeps them for the callers.

// Receives a line of the request, as logged but without the trailing request id. Called from any
// thread, also after the request was answered (a program that it started may end late), and from
// within logMessage, so it must not log.
using RequestLineSink =
    std::function<void(const std::string& request, int priority, const std::string& text)>;

// In addition to the log itself. Null, the initial value: no sink.
void installRequestLineSink(RequestLineSink sink);

// Destination of log lines. The default is syslog(3), facility daemon.
using LogSink = std::function<void(int priority, const std::string& line)>;
void installLogSink(LogSink sink);
// Writes "<PRIORITY>line" to standard error, as journald and a terminal take it.
LogSink standardErrorSink();

// Debug messages (7) are dropped unless this is on; off at start.
void setDebugLogging(bool on);

void logMessage(int priority, std::string_view text);

// The id of the request that this thread is serving, for log lines and for programs.
class RequestIdScope {
 public:
  explicit RequestIdScope(std::string id);
  RequestIdScope(const RequestIdScope&) = delete;
  RequestIdScope& operator=(const RequestIdScope&) = delete;
  ~RequestIdScope();

 private:
  std::string previous_;
};
// Empty outside a request.
const std::string& currentRequestId();

// A logger with a prefix. One object may be shared; its prefix belongs to the calling thread.
class SysLogger {
 public:
  // Writes with logMessage.
  SysLogger();
  // Writes with `write`, which may be called from any thread.
  explicit SysLogger(LogSink write);

  void setPrefix(std::string prefix);
  const std::string& prefix() const;
  // Logs the prefix, a blank and the text.
  void log(int priority, std::string_view text) const;

 private:
  LogSink write_;
  std::uint64_t number_;
};

}  // namespace paddock
