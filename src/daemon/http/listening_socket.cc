#include "daemon/http/listening_socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
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

namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kLockMode = 0600;
constexpr mode_t kSocketMode = 0666;

[[noreturn]] void fail(std::string_view operation, const std::string& path) {
  throw SocketError(systemError(errno, operation, path).what());
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw SocketError("the socket path " + path + " is too long: " + std::to_string(path.size()) +
                      " bytes, and the system takes " +
                      std::to_string(sizeof address.sun_path - 1));
  }
  std::memcpy(&address.sun_path[0], path.c_str(), path.size() + 1);
  return address;
}

int connectTo(int socket, const sockaddr_un& address) {
  return retryOnInterrupt([socket, &address] {
    return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  });
}

FileDescriptor newSocket() {
  FileDescriptor result(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!result) fail("socket", "");
  return result;
}

FileDescriptor lockOrFail(const std::string& path) {
  FileDescriptor lock(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kLockMode));
  if (!lock) fail("open", path);
  if (::flock(lock.get(), LOCK_EX | LOCK_NB) == 0) return lock;
  if (errno == EWOULDBLOCK)
    throw SocketError("paddockd is already running: " + path + " is locked");
  fail("lock", path);
}

// An existing path may be replaced when it is a socket without a listener.
void requireReplaceable(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return;
    fail("stat", path);
  }
  if (!S_ISSOCK(status.st_mode)) {
    throw SocketError(path + " is there and is not a socket; it is left alone");
  }
  const FileDescriptor probe = newSocket();
  if (connectTo(probe.get(), addressOf(path)) == 0 || errno == EAGAIN) {
    throw SocketError("another daemon is already running: it listens on " + path);
  }
  if (errno != ECONNREFUSED && errno != ENOENT) fail("connect", path);
}

// Bound under another name and moved into place, so that the socket is never there with a mode
// that the umask made, nor before it listens.
FileDescriptor listenAt(const std::string& path, const std::string& temporary) {
  FileDescriptor result = newSocket();
  const sockaddr_un address = addressOf(temporary);
  if (::unlink(temporary.c_str()) != 0 && errno != ENOENT) fail("unlink", temporary);
  if (::bind(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fail("bind", temporary);
  }
  if (::chmod(temporary.c_str(), kSocketMode) != 0) fail("chmod", temporary);
  if (::listen(result.get(), SOMAXCONN) != 0) fail("listen", temporary);
  if (::rename(temporary.c_str(), path.c_str()) != 0) fail("rename", temporary);
  return result;
}

}  // namespace

ListeningSocket::ListeningSocket(const Paths& paths, FileDescriptor passed) {
  (void)addressOf(paths.socket());
  try {
    (void)openOwnFolder(paths.runFolder(), kFolderMode);
  } catch (const std::exception& error) {
    throw SocketError(error.what());
  }
  lock_ = lockOrFail(paths.lock());
  socket_ = std::move(passed);
  if (socket_) return;
  path_ = paths.socket();
  requireReplaceable(path_);
  socket_ = listenAt(path_, paths.runFolder() + "/paddockd.new");
}

ListeningSocket::~ListeningSocket() {
  if (!path_.empty()) ::unlink(path_.c_str());
}

}  // namespace paddock
