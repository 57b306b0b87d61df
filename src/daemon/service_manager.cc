#include "daemon/service_manager.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>

#include <cerrno>
#include <cstdint>

#include "base/system_call.h"
#include "base/text.h"
#include "daemon/http/listening_socket.h"
#include "paddock/sys_logger.h"

namespace paddock {
namespace {

constexpr int kTakeVariables = 1;
constexpr int kListens = 1;

// Kept in the environment, because each notification reads it; programs do not get it.
void notify(const std::string& state) {
  const int result = ::sd_notify(0, state.c_str());
  if (result < 0) logMessage(4, systemError(-result, "notifying the service manager", "").what());
}

void setNonBlocking(int socket) {
  const int flags = ::fcntl(socket, F_GETFL);                          // NOLINT: inherited
  if (flags < 0 || ::fcntl(socket, F_SETFL, flags | O_NONBLOCK) != 0)  // NOLINT: inherited
    throw SocketError(systemError(errno, "fcntl", "").what());
}

}  // namespace

FileDescriptor passedSocket(const std::string& path) {
  const int count = ::sd_listen_fds(kTakeVariables);
  if (count == 0) return {};
  if (count < 0) throw SocketError(systemError(-count, "sd_listen_fds", "").what());
  if (count > 1) {
    throw SocketError("the service manager passed " + std::to_string(count) +
                      " sockets, and one is expected (paddockd.socket)");
  }
  FileDescriptor socket(SD_LISTEN_FDS_START);
  if (::sd_is_socket_unix(socket.get(), SOCK_STREAM, kListens, path.c_str(), 0) <= 0) {
    throw SocketError("what the service manager passed is no stream socket that listens at " +
                      path + " (ListenStream= in paddockd.socket)");
  }
  setNonBlocking(socket.get());
  return socket;
}

std::optional<std::chrono::microseconds> watchdogLimit() {
  std::uint64_t microseconds = 0;
  const int result = ::sd_watchdog_enabled(kTakeVariables, &microseconds);
  if (result < 0) logMessage(4, systemError(-result, "WATCHDOG_USEC", "").what());
  if (result <= 0) return std::nullopt;
  return std::chrono::microseconds(microseconds);
}

void notifyReady(const std::string& status) { notify("READY=1\nSTATUS=" + printable(status)); }

void notifyReloading() {
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now().time_since_epoch());
  notify("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(now.count()));
}

void notifyStopping(const std::string& status) {
  notify("STOPPING=1\nSTATUS=" + printable(status));
}

void notifyAlive() { notify("WATCHDOG=1"); }

}  // namespace paddock
