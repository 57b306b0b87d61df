#include "paddock_directory/directory_handler.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "paddock/host.h"
#include "paddock_directory/node_operations.h"
#include "paddock_directory/record_operations.h"
#include "platform/linux/linux_clock.h"

namespace paddock {

namespace {

struct Entry {
  const char* name;
  bool changes;
  Dictionary (*run)(DirectoryService&, const Dictionary&);
};

Dictionary listNodes(DirectoryService& directory, const Dictionary&) {
  LinuxClock clock;
  return nodes::list(directory, clock);
}

constexpr std::array kEntries = {
    Entry{"listNodes", false, listNodes},         Entry{"listRecords", false, records::list},
    Entry{"getRecord", false, records::get},      Entry{"putRecord", true, records::put},
    Entry{"deleteRecord", true, records::remove}, Entry{"setPassword", true, records::setPassword},
};

LinuxDirectoryOptions optionsOfHost() {
  LinuxDirectoryOptions options;
  options.databasePath = hostPath(options.databasePath);
  const Dictionary* access = host().configuration().dictionary("access");
  const std::string* group = access == nullptr ? nullptr : access->string("admin_group");
  if (group != nullptr) options.adminGroup = *group;
  return options;
}

}  // namespace

DirectoryRequestHandler::DirectoryRequestHandler() : directory_(optionsOfHost()) {}

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
  std::unique_lock lock(changing_, std::defer_lock);
  if (entry->changes) lock.lock();
  return entry->run(directory_, request);
}

}  // namespace paddock
