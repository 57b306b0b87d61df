// The system's clocks.
#pragma once

#include "platform/machine_information.h"

namespace paddock {

class LinuxClock : public Clock {
 public:
  std::chrono::system_clock::time_point now() override;
  std::chrono::steady_clock::time_point monotonicNow() override;
};

// gethostname(2).
class LinuxHostName : public HostName {
 public:
  int gethostname(std::string& name) override;
};

// Random UUIDs from getrandom(2).
class LinuxUuidSource : public UuidSource {
 public:
  // Throws std::system_error when the kernel gives no random bytes.
  Guid newUuid() override;
};

// Browser information in the extended attribute "user.paddock.browserinfo"; see xattr(7).

// Thread-safe.
class LinuxBrowserInformation : public BrowserInformationService {
 public:
  int read(const std::string& path, BrowserInformation& information) override;
  int write(const std::string& path, const BrowserInformation& information) override;
};

}  // namespace paddock
