#include "daemon/peer.h"

#include <sys/socket.h>

namespace paddock {

std::optional<Peer> peerOf(int socket) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 ||
      size != sizeof credentials) {
    return std::nullopt;
  }
  return Peer{credentials.uid, credentials.gid, credentials.pid};
}

}  // namespace paddock
