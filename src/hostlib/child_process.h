// A started program: its process, its two output streams, and its termination.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "base/file_access.h"

namespace paddock {

class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  // Kills and reaps a process that was not waited for.
  ~ChildProcess();

  // Starts `path` with argv[0] = `path` and `arguments`, standard input empty, its output
  // streams on pipes, every other descriptor closed, default signal handlers, no signal blocked, in
  // a process group of its own. Returns 0, or the errno of starting it.
  int start(const std::string& path, const std::vector<std::string>& arguments);

  pid_t process() const { return process_; }
  // Readable when the process has ended.
  int ended() const { return ended_.get(); }
  // The reading ends, which do not block.
  FileDescriptor& output() { return output_; }
  FileDescriptor& errorOutput() { return errorOutput_; }

  // Kills the process and everything in its group.
  void killGroup() const;
  // Waits for this process only, and returns its wait status.
  int reap();

 private:
  int spawn(const std::string& path, const std::vector<std::string>& arguments, int output,
            int errorOutput);

  pid_t process_ = 0;
  FileDescriptor ended_;
  FileDescriptor output_;
  FileDescriptor errorOutput_;
};

// Reads both output streams of a program concurrently until it ends.

// Keeps at most `limit` bytes per stream and drops the rest, so that the program never blocks on a
// full pipe. Returns true once the program has ended: later output of processes that inherited its
// streams is not waited for. False when it had not ended at `deadline`.
bool readUntilEnd(ChildProcess& child, std::chrono::steady_clock::time_point deadline,
                  std::size_t limit, std::string& output, std::string& errorOutput);

}  // namespace paddock
