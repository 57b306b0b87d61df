// The run-a-program operation of the host.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

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
  // Runs the executable at an absolute path with `arguments` (argv[0] not among them) and waits for
  // it. Its output is returned as text.
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

// Programs that the configuration names, as argument vectors.

// The texts of the array under `key` of the table `table`; absent when it is not set.
std::optional<std::vector<std::string>> configuredTexts(const Dictionary& configuration,
                                                        std::string_view table,
                                                        std::string_view key);

// Runs the program of an argument vector, whose first element is its path, and waits for it. The
// reply has, when something went wrong or was said, its texts beside the number:
//   "status"       its exit status, 128 + N when signal N ended it; 0 when there is no command; the
//                  errno of starting it; ETIMEDOUT when it took too long
//   "error"        why there is no exit status; absent when there is one
//   "errorOutput"  what it wrote to standard error, its first 64 KiB; absent when that is nothing
Dictionary runConfiguredCommand(ProgramRunner& runner,
                                const std::vector<std::string>& argumentVector);

}  // namespace paddock
