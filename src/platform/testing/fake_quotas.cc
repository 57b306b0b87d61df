#include "platform/testing/fake_quotas.h"

#include <cerrno>

namespace paddock {

int FakeQuotaControl::quotactl(const std::string& path, std::uint32_t commandWord, std::uint32_t id,
                               const QuotaArgument& argument) {
  const std::string* quotaFile = std::get_if<std::string>(&argument);
  calls_.push_back({path, commandWord, id, quotaFile != nullptr ? *quotaFile : ""});
  const auto request = quotaRequest(commandWord, argument);
  if (const int error = errors_[commandWord]; error != 0) return error;
  if (!request) return EINVAL;
  if (const int error = quotaPathError(path); error != 0) return error;
  MountedVolume volume;
  if (const int error = volumes_.statfs(path, volume); error != 0) return error;
  const std::pair key(volume.f_mntonname, request->type);
  if (request->command == kQuotaStateCommand) {
    *request->state = on_.contains(key) ? 1 : 0;
  } else if (request->command == kQuotaOffCommand) {
    on_.erase(key);
  } else {
    if (const int error = quotaFileError(*request->quotaFile); error != 0) return error;
    on_.insert(key);
  }
  return 0;
}

}  // namespace paddock
