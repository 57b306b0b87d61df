#include "keelhouse/core/socket_path.h"

#include <sys/un.h>

#include <string_view>

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kSocket = "/run/paddock/paddockd.sock";

}  // namespace

std::string socketBelow(std::string root) {
  while (root.ends_with('/')) root.pop_back();
  return root + std::string(kSocket);
}

std::optional<std::string> rootOfSocket(const std::string& path) {
  if (!path.ends_with(kSocket)) return std::nullopt;
  return path.substr(0, path.size() - kSocket.size());
}

bool fitsSocketAddress(const std::string& path) {
  return path.size() < sizeof(sockaddr_un::sun_path);
}

}  // namespace paddock::keelhouse
