#include "paddock_vsp/server_state.h"

#include <string_view>

#include "paddock_vsp/pid_file.h"

namespace paddock {

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

}  // namespace paddock
