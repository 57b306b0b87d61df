#include "daemon/http/watchdog.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <thread>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
#include "base/text.h"
#include "paddock/sys_logger.h"

namespace paddock {
namespace {

using std::chrono::milliseconds;

constexpr std::string_view kRequest =
    "GET /v1/health HTTP/1.1\r\nHost: paddockd\r\nConnection: close\r\n\r\n";
constexpr std::string_view kAnswered = "HTTP/1.1 200 ";
constexpr int kRequestsWithinLimit = 4;
// Between two looks at whether to stop.
constexpr auto kSlice = milliseconds(50);
constexpr auto kPauseWithFullQueue = milliseconds(10);

milliseconds intervalWithin(std::chrono::microseconds limit) {
  return std::max(milliseconds(1),
                  std::chrono::duration_cast<milliseconds>(limit / kRequestsWithinLimit));
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(&address.sun_path[0], sizeof address.sun_path - 1);
  return address;
}

}  // namespace

Watchdog::Watchdog(const std::string& path, std::chrono::microseconds limit,
                   std::function<void()> alive)
    : limit_(limit),
      alive_(std::move(alive)),
      address_(addressOf(path)),
      clock_([this](std::uint64_t) { prove(); }, intervalWithin(limit)) {}

void Watchdog::prove() {
  std::string fault;
  try {
    fault = faultOf(Clock::now() + limit_ / 2);
    if (fault.empty()) alive_();
  } catch (const std::exception& error) {
    fault = error.what();
  }
  if (fault.empty() || stopping_) return;
  logMessage(3,
             "the daemon does not answer at its own socket, and gives no sign of life: " + fault);
}

bool Watchdog::mayWait(Clock::time_point deadline) const {
  return !stopping_ && Clock::now() < deadline;
}

std::string Watchdog::faultOf(Clock::time_point deadline) const {
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) return systemError(errno, "socket", "").what();
  std::string fault = connectTo(socket.get(), deadline);
  if (!fault.empty()) return fault;
  if (!writeAll(socket.get(), kRequest)) return systemError(errno, "write", "").what();
  return faultOfReply(socket.get(), deadline);
}

std::string Watchdog::connectTo(int socket, Clock::time_point deadline) const {
  const auto* address = reinterpret_cast<const sockaddr*>(&address_);
  for (;;) {
    const int error = errnoOf([&] { return ::connect(socket, address, sizeof address_); });
    if (error == 0) return {};
    // The queue of connections is full.
    if (error != EAGAIN || !mayWait(deadline)) return systemError(error, "connect", "").what();
    std::this_thread::sleep_for(kPauseWithFullQueue);
  }
}

std::string Watchdog::faultOfReply(int socket, Clock::time_point deadline) const {
  std::string start;
  while (mayWait(deadline)) {
    pollfd event{socket, POLLIN, 0};
    retryOnInterrupt([&event] { return ::poll(&event, 1, static_cast<int>(kSlice.count())); });
    if (event.revents == 0) continue;
    std::array<char, 4096> bytes{};
    std::size_t count = 0;
    const int error = errnoOf([&] { return ::read(socket, bytes.data(), bytes.size()); }, &count);
    if (error != 0) return systemError(error, "read", "").what();
    start.append(bytes.data(), std::min(count, kAnswered.size() - start.size()));
    if (count > 0) continue;
    return start == kAnswered ? "" : "the answer begins with \"" + printable(start) + '"';
  }
  const auto waited = std::chrono::duration_cast<milliseconds>(limit_ / 2);
  return "no answer in " + std::to_string(waited.count()) + " ms";
}

}  // namespace paddock
