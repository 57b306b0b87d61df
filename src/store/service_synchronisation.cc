#include "store/service_synchronisation.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <string_view>

#include "base/text.h"
#include "platform/plugin_commands.h"
#include "platform/program_runner.h"
#include "platform/services.h"

namespace paddock {

namespace {

constexpr const char* kAdministrationTool = "/usr/sbin/keelhouse";
constexpr const char* kSmbSynchroniser = "/usr/libexec/samba/synchronize-shares";
constexpr const char* kNfs = "paddock_nfs";
constexpr std::string_view kVspStatus = "vsp:status = ";
constexpr Status kComplained = -1;

constexpr Status clampToStatus(std::int64_t number) {
  return static_cast<Status>(std::clamp<std::int64_t>(number, std::numeric_limits<Status>::min(),
                                                      std::numeric_limits<Status>::max()));
}

Status statusOf(const ProgramOutcome& outcome) {
  if (outcome.status != 0) return outcome.status;
  return outcome.errorOutput.empty() ? kSuccess : kComplained;
}

Status syncVsp() {
  const ProgramOutcome outcome = services().programRunner->run(
      kAdministrationTool, {"command", "vsp:command", "=", "syncSharePoints"});
  const Status status = statusOf(outcome);
  const std::string_view output = outcome.output;
  if (status != kSuccess || !output.starts_with(kVspStatus)) return status;
  return leadingInteger(output.substr(kVspStatus.size()));
}

Status updateNfs() {
  services().pluginCommands->doCommand(kNfs, {{"command", "updateNFS"}, {"count", 0}}, kNfs,
                                       std::nullopt);
  return kSuccess;
}

Status syncSmb() { return statusOf(services().programRunner->run(kSmbSynchroniser, {})); }

}  // namespace

Status sync_share_point_services() {
  std::int64_t sum = 0;
  std::exception_ptr first;
  for (Status (*const step)() : {syncVsp, updateNfs, syncSmb}) {
    try {
      sum += step();
    } catch (...) {
      if (first == nullptr) first = std::current_exception();
    }
  }
  if (first != nullptr) std::rethrow_exception(first);
  return clampToStatus(sum);
}

}  // namespace paddock
