// The run-a-program operation of the host.
#pragma once

#include <string>
#include <vector>

namespace paddock {

struct ProgramOutcome {
  // 0: it ran; otherwise the errno of starting it, or ETIMEDOUT when it took too long and was
  // ended.
  int status = 0;
  std::string output;
  std::string errorOutput;
  int exitStatus = 0;  // of a program that ran; 128 + the number of the signal that ended it
  friend bool operator==(const ProgramOutcome&, const ProgramOutcome&) = default;
};

class ProgramRunner {
 public:
  virtual ~ProgramRunner() = default;
  // Runs the executable at an absolute path with `arguments` (argv[0] not among them) and waits
  // for it. What it wrote is handed back as text.
  virtual ProgramOutcome run(const std::string& path,
                             const std::vector<std::string>& arguments) = 0;
  // Starts the executable at an absolute path and does not wait for it: 0, or the errno of starting
  // it. `argumentVector` is the whole of argv, argv[0] included. The program goes on when this
  // process ends.
  virtual int start(const std::string& path, const std::vector<std::string>& argumentVector) = 0;
};

}  // namespace paddock
