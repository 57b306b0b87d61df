#include "paddock_nfs/nfs_handler.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "base/file_access.h"
#include "base/text.h"
#include "paddock/host.h"
#include "platform/host/host_services.h"
#include "platform/program_runner.h"

namespace paddock {

namespace {

constexpr const char* kThreads = "/proc/fs/nfsd/threads";
constexpr std::size_t kLongestNumber = 64;

bool serverHasThreads() {
  try {
    const auto text = readSmallFile(hostPath(kThreads), kLongestNumber);
    if (!text) return false;
    return parseInteger(std::string_view(*text).substr(0, text->find('\n'))).value_or(0) > 0;
  } catch (const std::system_error&) {
    return false;
  }
}

std::vector<std::string> updateCommand() {
  const auto command = configuredTexts(host().configuration(), "nfs", "update_command");
  return command.value_or(std::vector<std::string>{"/usr/sbin/exportfs", "-ra"});
}

}  // namespace

NfsRequestHandler::NfsRequestHandler() : NfsRequestHandler(std::make_unique<HostProgramRunner>()) {}

NfsRequestHandler::NfsRequestHandler(std::unique_ptr<ProgramRunner> runner)
    : runner_(std::move(runner)) {}

std::vector<PluginRequestHandler::Operation> NfsRequestHandler::operations() const {
  return {{"getState", false}, {"updateNFS", true}};
}

Dictionary NfsRequestHandler::performOperation(std::string_view name,
                                               const Dictionary& /*request*/) {
  if (name == "getState") return getState();
  if (name == "updateNFS") return updateNfs();
  throw std::invalid_argument("no operation " + std::string(name));
}

Dictionary NfsRequestHandler::getState() {
  return {{"state", serverHasThreads() ? "RUNNING" : "STOPPED"}};
}

Dictionary NfsRequestHandler::updateNfs() {
  return runConfiguredCommand(*runner_, updateCommand());
}

}  // namespace paddock
