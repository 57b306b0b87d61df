// Running external programs, with or without waiting for them.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace paddock {

struct ProgramResult {
  // 0 when the program ran (whatever its exit status), otherwise the errno of starting it, or
  // ETIMEDOUT when it was killed at the time limit.
  int status = 0;
  int exitStatus = 0;       // exit status, or 128 + the signal that ended it; see wait(2)
  std::string output;       // standard output; at most kProgramOutputLimit bytes, the rest dropped
  std::string errorOutput;  // standard error, the same
};

inline constexpr std::size_t kProgramOutputLimit = 16U << 20U;

// Time limit of a program that is waited for: 60 seconds until another limit is set, which the
// daemon does before it loads the first plug-in.
inline constexpr std::chrono::seconds kProgramTimeLimit{60};
void setProgramTimeLimit(std::chrono::seconds limit);

// Starts the executable at the absolute path `path`, resolved below the host's root, with
// `arguments` (without argv[0], which is the path), standard input empty, both output streams
// captured, no other descriptor open, in "/", in a process group of its own, and waits for it to
// end. When the time limit passes, the program and what else is in its process group is killed.
// What it wrote to standard error and an exit status other than 0 go to the log, since callers drop
// them. Never throws for a program's sake.
ProgramResult runProgram(const std::string& path, const std::vector<std::string>& arguments);

// As runProgram, with a time limit of its own and no log lines: for a query whose failure is a
// valid answer.
ProgramResult askProgram(const std::string& path, const std::vector<std::string>& arguments,
                         std::chrono::milliseconds limit);

// Starts the executable at the absolute path `path`, taken below the host's root, and does not wait
// for it. `argumentVector` is the whole of argv, argv[0] included. Standard input is empty,
// standard output is discarded and standard error inherited from the daemon; no other descriptor is
// open; the program runs in "/", has a session of its own and survives the daemon. The daemon reaps
// it; an exit status other than 0 is logged. Returns 0, or the errno of starting it, which is
// logged, too. Never throws for a program's sake.
int startProgram(const std::string& path, const std::vector<std::string>& argumentVector);

// Result of starting a detached program. At most one of the errors is not 0, and then nothing was
// started.
struct DetachedProgram {
  int error = 0;         // the errno of creating a process for it
  pid_t process = 0;     // the first child, which has ended; 0 when there was none
  int detachError = 0;   // the errno that kept the child from detaching
  int prepareError = 0;  // the errno for which no process was created at all; it is logged
};

// Starts the executable at the absolute path `path`, taken below the host's root, as daemon(3)
// would make it: in a session of its own, no child of this process, its three standard streams on
// /dev/null, no other descriptor open, default signal handlers, no signal blocked, and with an
// empty environment. `argumentVector` is the whole of argv. Returns when it has detached. Whether
// exec then succeeds is not known: on failure it exits with status 1 and a log line. Never throws
// for a program's sake.
DetachedProgram startDetachedProgram(const std::string& path,
                                     const std::vector<std::string>& argumentVector);

// Whether the process belongs to a program that `runProgram` is waiting for, itself or a child
// of it in the same process group. The daemon keeps capacity for the requests of such a process.
bool isRunningProgram(pid_t process);

// The id of the request that waits for that program; empty when the process belongs to none, or to
// one that runs for no request.
std::string requestOfProgram(pid_t process);

}  // namespace paddock
