#include "privileges/effective_permissions.h"

#include "base/text.h"
#include "platform/logger.h"
#include "platform/program_runner.h"
#include "platform/services.h"
#include "privileges/bundle_programs.h"
#include "privileges/module_logger.h"

namespace paddock {

Status get_effective_permissions(const std::string& path, std::uint32_t uid, std::int32_t& result) {
  SysLogger& logger = get_logger("get_effective_permissions");
  ProgramRunner& programs = *services().programRunner;
  const std::string program = kEffectivePrivsPath;
  if (!programs.exists(program)) {
    logger.log(kLogError,
               "Cannot get effective permissions because " + program + " executable is missing");
    return -1;
  }
  const ProgramOutcome outcome = programs.run(program, {"-p", path, "-u", std::to_string(uid)});
  if (outcome.status != 0) return outcome.status;
  if (!outcome.errorOutput.empty()) return -1;
  result = leadingInteger(outcome.output);
  return kSuccess;
}

}  // namespace paddock
