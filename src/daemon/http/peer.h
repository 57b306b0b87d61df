// Who is at the other end of a Unix-socket connection.
#pragma once

#include <sys/types.h>

#include <optional>

namespace paddock {

struct Peer {
  uid_t uid = 0;
  gid_t gid = 0;
  pid_t process = 0;
  std::optional<uid_t> loginUser = {};  // who logged in, whoever he has become since
  friend bool operator==(const Peer&, const Peer&) = default;
};

// As they were when the peer connected; nothing when the socket does not say.
std::optional<Peer> peerOf(int socket);
// The same without who logged in, which takes longer to find out than all the rest.
std::optional<Peer> credentialsOf(int socket);
// Nobody where the kernel keeps none (CONFIG_AUDIT), and of a process that nobody's login began.
std::optional<uid_t> loginUserOf(pid_t process);

}  // namespace paddock
