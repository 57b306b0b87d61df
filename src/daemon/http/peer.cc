#include "daemon/http/peer.h"

#include <sys/socket.h>

#include <cstdint>
#include <limits>
#include <string>
#include <system_error>

#include "base/file_access.h"
#include "base/text.h"

namespace paddock {

std::optional<uid_t> loginUserOf(pid_t process) {
  constexpr std::size_t kLongestNumber = 64;
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

std::optional<Peer> credentialsOf(int socket) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 ||
      size != sizeof credentials) {
    return std::nullopt;
  }
  return Peer{credentials.uid, credentials.gid, credentials.pid};
}

std::optional<Peer> peerOf(int socket) {
  auto peer = credentialsOf(socket);
  if (peer) peer->loginUser = loginUserOf(peer->process);
  return peer;
}

}  // namespace paddock
