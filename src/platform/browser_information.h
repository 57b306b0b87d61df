// The 32 bytes that a desktop's file browser keeps with each file.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace paddock {

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
