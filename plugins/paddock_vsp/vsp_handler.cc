#include "paddock_vsp/vsp_handler.h"

#include <sys/types.h>

#include <cerrno>
#include <csignal>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "base/file_access.h"
#include "base/text.h"
#include "paddock/host.h"
#include "platform/host/host_services.h"
#include "platform/program_runner.h"

namespace paddock {

namespace {

constexpr std::size_t kLongestFile = 4096;
constexpr std::size_t kLongestStatus = 64U << 10U;
// The kernel gives no higher one (proc(5), pid_max).
constexpr std::int64_t kHighestProcess = 1LL << 22;
constexpr std::string_view kBlanks = " \t\r";

std::optional<std::string> contentsOf(const std::string& path, std::size_t limit) {
  try {
    return readSmallFile(path, limit);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<pid_t> processIn(std::string_view contents) {
  const auto number = parseInteger(trimmed(contents.substr(0, contents.find('\n'))));
  // Zero and below would denote process groups.
  if (!number || *number <= 0 || *number > kHighestProcess) return std::nullopt;
  return static_cast<pid_t>(*number);
}

// The value of a line "NAME:\tVALUE" of /proc/PID/status.
std::string_view lineOf(std::string_view status, std::string_view name) {
  const std::size_t start = status.find(name);
  if (start == std::string_view::npos) return {};
  status.remove_prefix(start + name.size());
  return trimmed(status.substr(0, status.find('\n')));
}

// A zombie has ended, and the number of a thread is no process'.
bool isLiveProcess(pid_t process) {
  const std::string number = std::to_string(process);
  const auto status = contentsOf("/proc/" + number + "/status", kLongestStatus);
  if (!status) return true;  // there is no more to be known
  const std::string_view state = lineOf(*status, "\nState:");
  return !state.starts_with('Z') && !state.starts_with('X') && lineOf(*status, "\nTgid:") == number;
}

}  // namespace

bool processOfPidFileRuns(const std::string& path) {
  const auto contents = contentsOf(path, kLongestFile);
  const auto process = contents ? processIn(*contents) : std::nullopt;
  if (!process) return false;
  if (::kill(*process, 0) != 0 && errno != EPERM) return false;
  return isLiveProcess(*process);
}

namespace {

constexpr const char* kSystemctl = "/usr/bin/systemctl";
constexpr std::string_view kUnit = "unit:";
constexpr std::string_view kPidFile = "pidfile:";

bool unitIsActive(const std::string& unit, ProgramRunner& runner) {
  const ProgramOutcome outcome = runner.run(kSystemctl, {"is-active", "--quiet", "--", unit});
  return outcome.status == 0 && outcome.exitStatus == 0;
}

}  // namespace

bool vspServerRuns(const std::string& state, const std::string& root, ProgramRunner& runner) {
  if (state.starts_with(kUnit)) return unitIsActive(state.substr(kUnit.size()), runner);
  if (state.starts_with(kPidFile)) {
    return processOfPidFileRuns(root + state.substr(kPidFile.size()));
  }
  return state == "running";
}

namespace {

constexpr const char* kTable = "vsp";

std::string configuredState() {
  const Dictionary* table = host().configuration().dictionary(kTable);
  const std::string* state = table != nullptr ? table->string("state") : nullptr;
  return state != nullptr ? *state : "running";
}

}  // namespace

VspRequestHandler::VspRequestHandler() : VspRequestHandler(std::make_unique<HostProgramRunner>()) {}

VspRequestHandler::VspRequestHandler(std::unique_ptr<ProgramRunner> runner)
    : runner_(std::move(runner)) {}

std::vector<PluginRequestHandler::Operation> VspRequestHandler::operations() const {
  return {{"getState", false}, {"syncSharePoints", true}};
}

Dictionary VspRequestHandler::performOperation(std::string_view name,
                                               const Dictionary& /*request*/) {
  if (name == "getState") return getState();
  if (name == "syncSharePoints") return syncSharePoints();
  throw std::invalid_argument("no operation " + std::string(name));
}

Dictionary VspRequestHandler::getState() {
  const bool runs = vspServerRuns(configuredState(), host().root(), *runner_);
  return {{"state", runs ? "RUNNING" : "STOPPED"}};
}

Dictionary VspRequestHandler::syncSharePoints() {
  const auto command = configuredTexts(host().configuration(), kTable, "sync_command");
  return runConfiguredCommand(*runner_, command.value_or(std::vector<std::string>()));
}

}  // namespace paddock
