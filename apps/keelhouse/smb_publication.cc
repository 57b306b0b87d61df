#include "keelhouse/smb_publication.h"

#include <fstream>

#include "keelhouse/socket_path.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPublishedShares = "/etc/samba/paddock-shares.conf";

}  // namespace

std::string publishedSharesOf(const std::string& socketPath) {
  const auto root = rootOfSocket(socketPath);
  return root ? *root + kPublishedShares : std::string();
}

std::optional<bool> isPublishedOverSmb(const std::string& file, const Dictionary& sharePoint) {
  const std::string* name = sharePoint.string("nameOverSMB");
  const std::string* path = sharePoint.string("path");
  if (name == nullptr || name->empty() || path == nullptr) return std::nullopt;
  std::ifstream lines(file);
  if (!lines) return std::nullopt;
  const std::string heading = "[" + *name + "]";
  const std::string itsPath = "    path = " + *path;
  bool insideIt = false;
  for (std::string line; std::getline(lines, line);) {
    if (insideIt && line == itsPath) return true;
    insideIt = line == heading;
  }
  return false;
}

}  // namespace paddock::keelhouse
