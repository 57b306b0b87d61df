#include "store/sharing_services.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "base/text.h"
#include "platform/logger.h"
#include "platform/plugin_commands.h"
#include "platform/program_runner.h"
#include "platform/services.h"
#include "protocol/keys.h"
#include "store/directory_access.h"

namespace paddock {

namespace {

using Failures = std::vector<std::string>;

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

std::string firstLine(std::string_view text) {
  constexpr std::size_t kLongest = 500;
  return std::string(text.substr(0, std::min(text.find('\n'), kLongest)));
}

std::string exitText(std::int64_t status) {
  return "it exited with status " + std::to_string(status);
}

// Why the program did not do what it was run for; empty when it did.
std::string failureOf(const ProgramOutcome& outcome, Status status) {
  if (outcome.status != 0) return sharing_error_string(outcome.status);
  if (!outcome.errorOutput.empty()) return firstLine(outcome.errorOutput);
  if (status != kSuccess) return "its status is " + std::to_string(status);
  return outcome.exitStatus != 0 ? exitText(outcome.exitStatus) : std::string();
}

// The same of a plug-in's reply that ran one.
std::string failureOf(const Dictionary& reply) {
  if (const std::string* error = reply.string("error")) return firstLine(*error);
  const std::int64_t status = reply.integer("status").value_or(kSuccess);
  if (status == kSuccess) return {};
  const std::string* output = reply.string("errorOutput");
  return output != nullptr ? firstLine(*output) : exitText(status);
}

void note(const std::string& who, const std::string& failure, Failures* failures) {
  if (failures != nullptr && !failure.empty()) failures->push_back(who + ": " + failure);
}

Status syncVsp(Failures* failures) {
  const ProgramOutcome outcome = services().programRunner->run(
      kAdministrationTool, {"command", "vsp:command", "=", "syncSharePoints"});
  Status status = statusOf(outcome);
  const std::string_view output = outcome.output;
  if (status == kSuccess && output.starts_with(kVspStatus)) {
    status = leadingInteger(output.substr(kVspStatus.size()));
  }
  note(kAdministrationTool, failureOf(outcome, status), failures);
  return status;
}

Status updateNfs(Failures* failures) {
  const Dictionary reply = services().pluginCommands->doCommand(
      kNfs, {{"command", "updateNFS"}, {"count", 0}}, kNfs, std::nullopt);
  note(kNfs, failureOf(reply), failures);
  return kSuccess;
}

Status syncSmb(Failures* failures) {
  const ProgramOutcome outcome = services().programRunner->run(kSmbSynchroniser, {});
  const Status status = statusOf(outcome);
  note(kSmbSynchroniser, failureOf(outcome, status), failures);
  return status;
}

}  // namespace

Status sync_share_point_services(Failures* failures) {
  std::int64_t sum = 0;
  std::exception_ptr first;
  for (Status (*const step)(Failures*) : {syncVsp, updateNfs, syncSmb}) {
    try {
      sum += step(failures);
    } catch (...) {
      if (first == nullptr) first = std::current_exception();
    }
  }
  if (first != nullptr) std::rethrow_exception(first);
  return clampToStatus(sum);
}

namespace {

constexpr const char* kPlugin = "paddock_services";
// A request may list every share point of a server.
constexpr std::size_t kMostAsked = 100;

void log(int priority, const std::string& text) {
  services().logger->log(priority, "paddock_sharing: " + text);
}

bool isServedOverAny(const Dictionary& state) {
  const Dictionary* protocols = state.dictionary("protocols");
  if (protocols == nullptr) return false;
  return std::any_of(protocols->begin(), protocols->end(), [](const auto& protocol) {
    const Dictionary* one = protocol.value.dictionary();
    const std::string* word = one != nullptr ? one->string("state") : nullptr;
    return word != nullptr && *word == "served";
  });
}

void logOne(const Dictionary& state) {
  const std::string* path = state.string("path");
  const std::string* sentence = state.string("sentence");
  if (path == nullptr || sentence == nullptr || sentence->empty()) return;
  if (!state.boolean(protocol::kIsShared).value_or(true)) {
    const char* what = isServedOverAny(state) ? " is not shared, and still served: "
                                              : " is not shared; who may serve it still: ";
    log(kLogWarning, *path + what + *sentence);
    return;
  }
  const bool isServed = state.boolean("isServed").value_or(false);
  log(isServed ? kLogInformation : kLogWarning, *path + ": " + *sentence);
}

void askAndLog(const std::vector<SharePointRecord>& sharePoints) {
  Array paths;
  std::size_t others = 0;
  for (const SharePointRecord& sharePoint : sharePoints) {
    // A record without a folder shares nothing; a relative path would be that of another one.
    if (!sharePoint.identifier().starts_with('/')) continue;
    if (paths.size() < kMostAsked) {
      paths.emplace_back(sharePoint.identifier());
    } else {
      ++others;
    }
  }
  if (paths.empty()) return;
  const Dictionary reply = services().pluginCommands->doCommand(
      kPlugin, {{"command", "getServed"}, {"paths", std::move(paths)}, {"duringChange", true}},
      kPlugin, std::nullopt);
  const Array* states = reply.array("sharePoints");
  if (states == nullptr) {
    const std::string* error = reply.string("error");
    log(kLogWarning, "whether the share points are served is not known" +
                         (error != nullptr ? ": " + *error : std::string()));
    return;
  }
  for (const Value& state : *states) {
    if (state.dictionary() != nullptr) logOne(*state.dictionary());
  }
  if (others > 0) {
    log(kLogInformation, "whether the other " + std::to_string(others) +
                             " share points are served: keelhouse share list --check");
  }
}

}  // namespace

void log_what_is_served(const std::vector<SharePointRecord>& sharePoints) {
  try {
    askAndLog(sharePoints);
  } catch (...) {
    log(kLogWarning,
        "whether the share points are served is not known: " + describe_current_exception());
  }
}

}  // namespace paddock
