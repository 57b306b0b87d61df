#include "synchronize-shares/smb_server.h"

#include <cerrno>
#include <string_view>
#include <vector>

#include "base/system_call.h"
#include "platform/linux/process/bounded_program.h"

namespace paddock::synchronizer {

namespace {

constexpr std::size_t kKeptOutput = 4096;
// What smbcontrol says when there is no smbd.
constexpr std::string_view kNotRunning = "Can't find pid for destination";

std::string control(const std::string& program, const std::vector<std::string>& words,
                    std::chrono::milliseconds patience) {
  const BoundedOutcome ended = runBoundedProgram(program, words, patience, kKeptOutput);
  if (ended.status == ENOENT) return {};
  if (ended.status == ETIMEDOUT) return "smbd is not told, " + program + " takes too long";
  if (ended.status != 0)
    return systemError(ended.status, "smbd is not told, cannot start", program).what();
  const std::string output = ended.output + ended.errorOutput;
  if (ended.exitStatus == 0 || output.find(kNotRunning) != std::string::npos) return {};
  return "smbd is not told, " + program + " ended with status " + std::to_string(ended.exitStatus) +
         ": " + output;
}

}  // namespace

std::string tellSmbServer(const std::string& program, std::chrono::milliseconds patience) {
  return control(program, {"smbd", "reload-config"}, patience);
}

std::string endConnections(const std::string& program, const std::string& share,
                           std::chrono::milliseconds patience) {
  return control(program, {"smbd", "close-share", share}, patience);
}

}  // namespace paddock::synchronizer
