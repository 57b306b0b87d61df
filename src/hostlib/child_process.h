// A started program: its process, its two output streams, and the end of its life.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "base/file_descriptor.h"

namespace paddock {

class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  // Ends a process that was not waited for, so that none is left behind.
  ~ChildProcess();

  // Starts `path` with argv[0] = `path` and `arguments`, standard input empty, its output
  // streams on pipes, every other descriptor closed, default signal handlers, no signal blocked, in
  // a process group of its own. 0, or the errno that kept it from starting.
  int start(const std::string& path, const std::vector<std::string>& arguments);

  pid_t process() const { return process_; }
  // Readable when the process has ended.
  int ended() const { return ended_.get(); }
  // The reading ends, which do not block.
  FileDescriptor& output() { return output_; }
  FileDescriptor& errorOutput() { return errorOutput_; }

  // Kills the process and everything in its group.
  void killGroup() const;
  // Waits for the process, and for no other, and gives its wait status.
  int reap();

 private:
  int spawn(const std::string& path, const std::vector<std::string>& arguments, int output,
            int errorOutput);

  pid_t process_ = 0;
  FileDescriptor ended_;
  FileDescriptor output_;
  FileDescriptor errorOutput_;
};

}  // namespace paddock
