// The run-a-program operation of the host.
#pragma once

#include <cstdint>
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

// How a detached program started. Its number is that of a process that has ended: the one that let
// go of the program. At most one of the errors, which are errnos, is not 0, and then no program was
// started. What keeps a detached child from becoming the program is not known.
struct DetachedStart {
  int error = 0;         // of fork(2)
  std::int32_t pid = 0;  // of the first child; 0 when there was none
  int detachError = 0;   // what kept the child from detaching
  int prepareError = 0;  // for which fork(2) was not even tried
};

// Paths of programs are the system's; the runner takes them below the host's root.
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
  // Starts it as a daemon(3) of its own, with an empty environment and its three standard streams
  // on /dev/null, and returns when it has let go. `argumentVector` as for `start`.
  virtual DetachedStart startDetached(const std::string& path,
                                      const std::vector<std::string>& argumentVector) = 0;
  // Whether there is a file at the absolute path of a program.
  virtual bool exists(const std::string& path) = 0;
  // Signal 0 to a process, as kill(2) takes its number: 0 or an errno.
  virtual int probe(std::int64_t process) = 0;
};

}  // namespace paddock
