#include "platform/linux/process/linux_machine_information.h"

#include <sys/random.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <climits>

#include "base/system_call.h"

namespace paddock {

std::chrono::system_clock::time_point LinuxClock::now() { return std::chrono::system_clock::now(); }

std::chrono::steady_clock::time_point LinuxClock::monotonicNow() {
  return std::chrono::steady_clock::now();
}

int LinuxHostName::gethostname(std::string& name) {
  name.clear();
  std::array<char, HOST_NAME_MAX + 1> buffer{};
  const int error = errnoOf([&] { return ::gethostname(buffer.data(), buffer.size()); });
  if (error == 0) name = buffer.data();
  return error;
}

Guid LinuxUuidSource::newUuid() {
  Guid uuid;
  // Up to 256 bytes come at once or not at all; see getrandom(2).
  const int error = errnoOf([&] { return ::getrandom(uuid.bytes.data(), uuid.bytes.size(), 0); });
  if (error != 0) throw systemError(error, "getrandom", "");
  uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0FU) | 0x40U);  // version 4
  uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3FU) | 0x80U);  // RFC 4122 variant
  return uuid;
}

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
