#include "store/service_synchronisation.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <string_view>

#include "platform/plugin_commands.h"
#include "platform/program_runner.h"
#include "platform/services.h"

namespace paddock {

namespace {

constexpr const char* kAdministrationTool = "/usr/sbin/keelhouse";
constexpr const char* kSmbSynchroniser = "/usr/libexec/samba/synchronize-shares";
constexpr const char* kNfs = "paddock_nfs";
constexpr std::string_view kVspStatus = "vsp:status = ";
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr Status kComplained = -1;

constexpr Status clampToStatus(std::int64_t number) {
  return static_cast<Status>(std::clamp<std::int64_t>(number, std::numeric_limits<Status>::min(),
                                                      std::numeric_limits<Status>::max()));
}

// White space, a sign and digits; what follows does not count, and no digits are 0.
Status leadingNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t number = 0;
  for (const char digit : text.substr(0, text.find_first_not_of("0123456789"))) {
    number = std::min<std::int64_t>(number * 10 + (digit - '0'),
                                    std::int64_t{std::numeric_limits<Status>::max()} + 1);
  }
  return clampToStatus(negative ? -number : number);
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
  return leadingNumber(output.substr(kVspStatus.size()));
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
