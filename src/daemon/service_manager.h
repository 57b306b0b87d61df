// The service manager that started the daemon, where it is systemd: the socket that it passed, what
// it is notified of, and the sign of life that it waits for.
//
// Without one nothing is passed, nobody is notified and no sign of life is wanted. See
// sd_listen_fds(3), sd_notify(3) and sd_watchdog_enabled(3).
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "base/file_access.h"

namespace paddock {

// The socket that was passed, close-on-exec and non-blocking; none when none was. Once: the
// variables that describe it are removed from the environment. Throws SocketError when several were
// passed, or something else than a stream socket that listens at `path`.
FileDescriptor passedSocket(const std::string& path);

// How long the daemon may go without `notifyAlive`; nullopt when nobody waits for it. Once, as
// above.
std::optional<std::chrono::microseconds> watchdogLimit();

// Requests are served. `status`: what that is, in a line.
void notifyReady(const std::string& status);
// The configuration is being read again; notifyReady ends that.
void notifyReloading();
void notifyStopping(const std::string& status);
void notifyAlive();

}  // namespace paddock
