#include "daemon/http/peer.h"

#include <sys/socket.h>

#include <cstdint>
#include <limits>
#include <string>
#include <system_error>

#include "base/file_access.h"
#include "base/text.h"

namespace paddock {

namespace {

constexpr std::size_t kLongestNumber = 64;

// Nobody where the kernel keeps none (CONFIG_AUDIT), and of a process that nobody's login began.
std::optional<uid_t> loginUserOf(pid_t process) {
  constexpr std::uint32_t kNobody = std::numeric_limits<std::uint32_t>::max();
  try {
    const auto text =
        readSmallFile("/proc/" + std::to_string(process) + "/loginuid", kLongestNumber);
    const auto number = text ? parseInteger(*text) : std::nullopt;
    if (!number || *number < 0 || *number >= kNobody) return std::nullopt;
    return static_cast<uid_t>(*number);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<Peer> peerOf(int socket) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 ||
      size != sizeof credentials) {
    return std::nullopt;
  }
  return Peer{credentials.uid, credentials.gid, credentials.pid, loginUserOf(credentials.pid)};
}

}  // namespace paddock
