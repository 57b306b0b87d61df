#include "platform/quota_control.h"

#include <sys/stat.h>

#include "base/system_call.h"

namespace paddock {

std::optional<QuotaRequest> quotaRequest(std::uint32_t commandWord, const QuotaArgument& argument) {
  QuotaRequest request;
  request.command = commandWord >> 8U;
  request.type = commandWord & 0xFFU;
  if (std::uint32_t* const* state = std::get_if<std::uint32_t*>(&argument)) request.state = *state;
  request.quotaFile = std::get_if<std::string>(&argument);
  if (request.state != nullptr) *request.state = 0;
  if (request.type > 1) return std::nullopt;
  switch (request.command) {
    case kQuotaStateCommand:
      return request.state != nullptr ? std::optional(request) : std::nullopt;
    case kQuotaOnCommand:
    case kQuotaOffCommand:
      return request.quotaFile != nullptr ? std::optional(request) : std::nullopt;
    default:
      return std::nullopt;
  }
}

int quotaPathError(const std::string& path) {
  if (!path.starts_with('/') || path.find('\0') != std::string::npos) return EINVAL;
  return (path + '/').find("/../") == std::string::npos ? 0 : EINVAL;
}

int quotaFileError(const std::string& path) {
  if (path.find('\0') != std::string::npos) return EINVAL;
  struct stat status {};
  const int error = errnoOf([&] { return ::lstat(path.c_str(), &status); });
  if (error != 0) return error;
  return S_ISREG(status.st_mode) ? 0 : EACCES;
}

}  // namespace paddock
