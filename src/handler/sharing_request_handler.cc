#include "handler/sharing_request_handler.h"

#include <array>
#include <mutex>
#include <stdexcept>
#include <string>

#include "exports/shared_exports_parser.h"
#include "handler/request_keys.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "protocol/keys.h"
#include "store/backup/backup_advertisement.h"
#include "store/directory_access.h"
#include "store/directory_nodes.h"

namespace paddock {

// The operations on directory nodes.
Dictionary SharingRequestHandler::getDSNodesWithRequest(const Dictionary&) {
  Dictionary reply;
  const SettingsLockGuard lock("getDSNodes", nullptr);
  Array nodePaths;
  get_ds_nodes(nodePaths);
  reply.set(protocol::kDsNodeArray, std::move(nodePaths));
  return reply;
}

Dictionary SharingRequestHandler::canAuthDSNodeWithRequest(const Dictionary& request) {
  Dictionary reply;
  const SettingsLockGuard lock("canAuthDSNode", nullptr);
  bool canAuth = false;
  // No node has an empty path, and an empty name or password authenticates nowhere.
  const Status status =
      auth_ds_node(textOf(request, protocol::kDsNodeName), textOf(request, protocol::kDsAdminName),
                   textOf(request, protocol::kDsAdminPW), canAuth);
  reply.set(protocol::kCanAuth, canAuth);
  if (status != kSuccess) reply.set(kErrorKey, sharing_error_string(status));
  return reply;
}

namespace {

using OperationMethod = Dictionary (SharingRequestHandler::*)(const Dictionary&);

struct OperationEntry {
  const char* name;
  bool changes;
  OperationMethod method;
};

constexpr std::array kOperations = {
    OperationEntry{"getState", false, &SharingRequestHandler::getStateWithRequest},
    OperationEntry{"getLogPaths", false, &SharingRequestHandler::getLogPathsWithRequest},
    OperationEntry{"readSettings", false, &SharingRequestHandler::readSettingsWithRequest},
    OperationEntry{"getSharePointList", false,
                   &SharingRequestHandler::getSharePointListWithRequest},
    OperationEntry{"writeSettings", true, &SharingRequestHandler::writeSettingsWithRequest},
    OperationEntry{"getDSNodes", false, &SharingRequestHandler::getDSNodesWithRequest},
    OperationEntry{"canAuthDSNode", true, &SharingRequestHandler::canAuthDSNodeWithRequest},
    OperationEntry{"fileInheritACL", false, &SharingRequestHandler::fileInheritACLWithRequest},
    OperationEntry{"startPropagate", true, &SharingRequestHandler::startPropagateWithRequest},
    OperationEntry{"statusCopyPrivs", true, &SharingRequestHandler::statusCopyPrivsWithRequest},
    OperationEntry{"getEffectivePerms", false,
                   &SharingRequestHandler::getEffectivePermsWithRequest},
};

constexpr std::uint64_t kFirstTick = 1;

void advertise(NetServiceOwner& owner) {
  try {
    register_share_points_with_hailcast(owner);
  } catch (...) {
    services().logger->log(kLogError,
                           "paddock_sharing: The backup share points are not advertised: " +
                               describe_current_exception());
  }
}

// The tick neither waits for the lock nor keeps a request waiting: a request that runs reads the
// file itself.
void followExportsFile() {
  if (!gSettingsDictLock->try_lock()) return;
  const MutexLock lock(*gSettingsDictLock, std::adopt_lock);
  refresh_exports();
  log_new_exports_fault();
}

}  // namespace

void SharingRequestHandler::initialize() {
  // Deliberately never destroyed: a request may still hold it while the process ends.
  static Mutex* const lock = new Mutex;
  gSettingsDictLock = lock;
}

SharingRequestHandler::SharingRequestHandler() { initialize(); }

SharingRequestHandler::~SharingRequestHandler() { SharingRequestHandler::setNetService(nullptr); }

PluginRequestHandler* SharingRequestHandler::init() {
  // Deliberate: the base initialiser's result is not used.
  PluginRequestHandler::init();
  return this;
}

std::vector<PluginRequestHandler::Operation> SharingRequestHandler::operations() const {
  std::vector<Operation> operations;
  operations.reserve(kOperations.size());
  for (const OperationEntry& entry : kOperations) operations.push_back({entry.name, entry.changes});
  return operations;
}

Dictionary SharingRequestHandler::performOperation(std::string_view name,
                                                   const Dictionary& request) {
  for (const OperationEntry& entry : kOperations) {
    if (name == entry.name) return (this->*entry.method)(request);
  }
  throw std::invalid_argument("no operation named " + std::string(name));
}

std::int64_t SharingRequestHandler::doIdleAtCount(std::uint64_t count) {
  if (count == kFirstTick) advertise(*this);
  followExportsFile();
  return 0;
}

Value SharingRequestHandler::startServiceWithVariant(const Value&) { return {}; }
Value SharingRequestHandler::stopServiceWithVariant(const Value&) { return {}; }
Value SharingRequestHandler::recycleServiceWithVariant(const Value&) { return {}; }

Dictionary SharingRequestHandler::getStateWithRequest(const Dictionary&) {
  return {{"state", "UNKNOWN"}, {protocol::kReadWriteSettingsVersion, 1}};
}

Dictionary SharingRequestHandler::getLogPathsWithRequest(const Dictionary&) {
  return {{protocol::kConsoleLog, "/var/tmp/console.log"},
          {protocol::kSampleLog, "/var/log/system.log"}};
}

std::shared_ptr<NetService> SharingRequestHandler::netService() const {
  const MutexLock lock(netServiceMutex_);
  return netService_;
}

void SharingRequestHandler::setNetService(std::shared_ptr<NetService> service) {
  {
    const MutexLock lock(netServiceMutex_);
    std::swap(netService_, service);
  }
  // The old service ends here, outside the lock, since ending it may call back.
}

void SharingRequestHandler::netServiceWillPublish(NetService&) {}
void SharingRequestHandler::netServiceDidNotPublish(NetService&, const Dictionary&) {}
void SharingRequestHandler::netServiceDidStop(NetService&) {}

}  // namespace paddock
