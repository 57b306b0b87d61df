#include "paddock_directory/replies.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "paddock/sys_logger.h"

namespace paddock {

namespace {

// Statuses that are an answer; others are a trouble that the administrator should find in the log.
constexpr std::array kAnswers = {ENOENT, EACCES, EINVAL, EEXIST, E2BIG};

}  // namespace

void logTrouble(const DirectoryError& error) {
  logMessage(3, std::string("paddock_directory: ") + error.what());
}

Dictionary failureReply(const DirectoryError& error) {
  Status status = error.status().value_or(EIO);
  if (status == 0) status = EIO;
  if (std::find(kAnswers.begin(), kAnswers.end(), status) == kAnswers.end()) logTrouble(error);
  return {{"status", status}, {"error", sharing_error_string(status)}, {"message", error.what()}};
}

}  // namespace paddock
