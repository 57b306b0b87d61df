#include "keelhouse/propagate/run_stopper.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "base/printable.h"
#include "base/system_call.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

std::string named(const RunningRun& run) {
  return "process " + std::to_string(run.process) + ", which works on " + printable(run.path) + ",";
}

void signal(const FileDescriptor& held, const RunningRun& run) {
  const int error =
      errnoOf([&] { return ::syscall(SYS_pidfd_send_signal, held.get(), SIGTERM, nullptr, 0); });
  if (error != 0 && error != ESRCH) {
    throw failure(named(run) + " cannot be ended: " + std::generic_category().message(error));
  }
}

}  // namespace

void stopRun(const std::string& root, const RunningRun& run, std::chrono::milliseconds patience) {
  const FileDescriptor held = holdRun(root, run);
  if (!held) return;
  signal(held, run);
  pollfd end{held.get(), POLLIN, 0};
  const int ready =
      retryOnInterrupt([&] { return ::poll(&end, 1, static_cast<int>(patience.count())); });
  if (ready != 1) {
    throw failure(named(run) + " was told to end, and has not yet\nIt may be waiting for a disk.");
  }
}

}  // namespace paddock::keelhouse
