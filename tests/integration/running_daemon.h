// A daemon that runs below a tree, ended with the object.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "integration/daemon_tree.h"
#include "integration/socket_client.h"

namespace paddock::testing {

class RunningDaemon {
 public:
  // Starts it and waits until it answers; `running` says whether it does. Its standard error is
  // appended to /stderr below the tree.
  explicit RunningDaemon(const DaemonTree& tree, const std::vector<std::string>& arguments = {});
  RunningDaemon(const RunningDaemon&) = delete;
  RunningDaemon& operator=(const RunningDaemon&) = delete;
  // Kills it when it still runs.
  ~RunningDaemon();

  bool running() const { return process_ > 0; }
  pid_t process() const { return process_; }
  std::string log() const { return tree_.read("/stderr"); }

  void signal(int number) const;
  // Waits for its end; the exit status, 128 + N for signal N, -1 when it takes too long.
  int wait();
  // SIGTERM, and wait.
  int stop();

  Response get(const std::string& target) const;
  Response post(const std::string& target, const std::string& body,
                const std::string& headers = {}) const;

 private:
  const DaemonTree& tree_;
  pid_t process_ = 0;
};

// Starts the daemon and waits for its end: what it wrote on both streams, and its exit status.
struct EndedRun {
  int status = 0;
  std::string output;
  std::string errorOutput;
};
EndedRun runToEnd(const DaemonTree& tree, const std::vector<std::string>& arguments);

// Waits until the condition holds; false when that takes too long.
bool eventually(const std::function<bool()>& condition);

}  // namespace paddock::testing
