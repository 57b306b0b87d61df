// Small services of the machine: time, the host's name, UUIDs, and files' browser information.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

#include "base/guid.h"

namespace paddock {

// Time.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::chrono::system_clock::time_point now() = 0;
  // Monotonic.
  virtual std::chrono::steady_clock::time_point monotonicNow() = 0;
};

// The host's name, as gethostname(2) gives it.
class HostName {
 public:
  virtual ~HostName() = default;
  // 0 and the name, or an errno and an empty name.
  virtual int gethostname(std::string& name) = 0;
};

// Random UUIDs (RFC 4122, version 4).
class UuidSource {
 public:
  virtual ~UuidSource() = default;
  virtual Guid newUuid() = 0;
};

// The 32 bytes that a desktop's file browser keeps with each file.
using BrowserInformation = std::array<std::uint8_t, 32>;

class BrowserInformationService {
 public:
  virtual ~BrowserInformationService() = default;
  // A link at the end of the path is never followed. 0, or an errno: ENOENT, ENOTSUP where files
  // cannot keep it, EPERM (writing) for what is neither a regular file nor a folder, EROFS, EINVAL
  // for a path with a NUL.
  //
  // A file that was never given any has 32 zero bytes. On failure `information` is zero, too;
  // EINVAL also when what is kept there is not 32 bytes.
  virtual int read(const std::string& path, BrowserInformation& information) = 0;
  virtual int write(const std::string& path, const BrowserInformation& information) = 0;
};

}  // namespace paddock
