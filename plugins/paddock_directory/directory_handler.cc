#include "paddock_directory/directory_handler.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <string>

#include "paddock/host.h"
#include "paddock/unanswered_nodes.h"
#include "paddock_directory/node_operations.h"
#include "paddock_directory/record_operations.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/process/linux_machine_information.h"

namespace paddock {

namespace {

// In idle ticks, one a second.
constexpr std::uint64_t kAskAgainEach = 10;

struct Entry {
  const char* name;
  bool changes;
  Dictionary (*run)(DirectoryService&, const Dictionary&);
};

Dictionary listNodes(DirectoryService& directory, const Dictionary& request) {
  LinuxClock clock;
  return nodes::list(directory, clock, request);
}

constexpr std::array kEntries = {
    Entry{"listNodes", false, listNodes},         Entry{"listRecords", false, records::list},
    Entry{"getRecord", false, records::get},      Entry{"putRecord", true, records::put},
    Entry{"deleteRecord", true, records::remove}, Entry{"setPassword", true, records::setPassword},
};

LinuxDirectoryOptions optionsOfHost(Clock& clock, Logger& logger) {
  LinuxDirectoryOptions options = configuredDirectory(host().configuration(), host().root());
  options.extraUsers = configuredExtraUsers(host().configuration(), host().root(), clock, logger);
  options.observer = std::make_shared<HostNodeObserver>();
  return options;
}

}  // namespace

DirectoryRequestHandler::DirectoryRequestHandler() : directory_(optionsOfHost(clock_, logger_)) {}

PluginRequestHandler* DirectoryRequestHandler::init() {
  directory_.refreshExtraUsers();
  return PluginRequestHandler::init();
}

std::int64_t DirectoryRequestHandler::doIdleAtCount(std::uint64_t count) {
  directory_.refreshExtraUsers();
  if (count % kAskAgainEach == 0) askUnansweredAgain();
  return PluginRequestHandler::doIdleAtCount(count);
}

// On a thread of its own: an unresponsive server would delay the other ticks.
void DirectoryRequestHandler::askUnansweredAgain() {
  if (asking_.valid() && asking_.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
    return;
  if (unansweredNodes().empty()) return;
  asking_ = std::async(std::launch::async, [this] { nodes::askAgain(directory_, clock_); });
}

std::vector<PluginRequestHandler::Operation> DirectoryRequestHandler::operations() const {
  std::vector<Operation> result;
  result.reserve(kEntries.size());
  for (const Entry& entry : kEntries) result.push_back({entry.name, entry.changes});
  return result;
}

Dictionary DirectoryRequestHandler::performOperation(std::string_view name,
                                                     const Dictionary& request) {
  const auto* const entry = std::find_if(kEntries.begin(), kEntries.end(),
                                         [&](const Entry& one) { return one.name == name; });
  if (entry == kEntries.end()) throw std::invalid_argument("no operation " + std::string(name));
  if (!entry->changes) return entry->run(directory_, request);
  const MutexLock lock(changing_);
  return entry->run(directory_, request);
}

}  // namespace paddock
