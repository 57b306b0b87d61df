#include "platform/linux/process/linux_browser_information.h"

#include <sys/xattr.h>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr const char* kAttribute = "user.paddock.browserinfo";

bool hasNul(const std::string& path) { return path.find('\0') != std::string::npos; }

}  // namespace

int LinuxBrowserInformation::read(const std::string& path, BrowserInformation& information) {
  information = {};
  if (hasNul(path)) return EINVAL;
  BrowserInformation kept{};
  std::size_t size = 0;
  const int error = errnoOf(
      [&] { return ::lgetxattr(path.c_str(), kAttribute, kept.data(), kept.size()); }, &size);
  if (error == ENODATA) return 0;
  if (error != 0 && error != ERANGE) return error;
  if (error == ERANGE || size != kept.size()) return EINVAL;
  information = kept;
  return 0;
}

int LinuxBrowserInformation::write(const std::string& path, const BrowserInformation& information) {
  if (hasNul(path)) return EINVAL;
  return errnoOf([&] {
    return ::lsetxattr(path.c_str(), kAttribute, information.data(), information.size(), 0);
  });
}

}  // namespace paddock
