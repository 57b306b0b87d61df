#include "keelhouse/socket_path.h"

#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <string_view>

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kPlace = "/usr/sbin/keelhouse";
constexpr std::string_view kSocket = "/run/paddock/paddockd.sock";

}  // namespace

std::string rootOfExecutable(const std::string& executable) {
  if (!executable.ends_with(kPlace)) return {};
  return executable.substr(0, executable.size() - kPlace.size());
}

std::string runningExecutable() {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0) return {};
  std::string executable(path.data(), static_cast<std::size_t>(length));
  // The kernel's note that the file was replaced while the program runs.
  constexpr std::string_view kReplaced = " (deleted)";
  if (executable.ends_with(kReplaced)) executable.resize(executable.size() - kReplaced.size());
  return executable;
}

std::string socketBelow(std::string root) {
  while (root.ends_with('/')) root.pop_back();
  return root + std::string(kSocket);
}

bool fitsSocketAddress(const std::string& path) {
  return path.size() < sizeof(sockaddr_un::sun_path);
}

}  // namespace paddock::keelhouse
