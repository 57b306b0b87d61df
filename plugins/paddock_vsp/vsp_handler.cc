#include "paddock_vsp/vsp_handler.h"

#include <stdexcept>
#include <string>

#include "paddock/host.h"
#include "paddock_vsp/server_state.h"
#include "platform/configured_command.h"
#include "platform/host/host_services.h"

namespace paddock {

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
