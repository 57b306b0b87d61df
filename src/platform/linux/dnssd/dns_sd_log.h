// What is said of DNS-SD in the log, by a thread that may outlive the logger.
#pragma once

#include <mutex>
#include <set>
#include <string>

namespace paddock {
class Logger;
}

namespace paddock::dns_sd {

class DnsSdLog {
 public:
  // Null: nothing is logged. The logger lives until `close`.
  explicit DnsSdLog(Logger* logger) : logger_(logger) {}

  // Any thread may call.
  void log(int priority, const std::string& text);
  // Nothing is logged afterwards. Waits for a line that is being logged.
  void close();

  // A warning that is not repeated until the trouble is over. These are of one thread.
  void warnOnce(const std::string& text);
  // Whether there was any.
  bool troubleIsOver();

 private:
  std::mutex mutex_;
  Logger* logger_;
  std::set<std::string> warned_;
};

}  // namespace paddock::dns_sd
