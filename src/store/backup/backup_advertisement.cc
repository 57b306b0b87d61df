#include "store/backup/backup_advertisement.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "platform/logger.h"
#include "platform/net_service.h"
#include "platform/plugin_commands.h"
#include "platform/services.h"
#include "store/directory_access.h"

namespace paddock {

namespace {

Array searchSharePoints() {
  return get_local_node()->findRecordNames(
      kRecordsAll,
      {schema::kBackstowBackup, schema::kBackstowBackupUuid, schema::kVspName, schema::kVspShared},
      schema::kSharePoints, MatchType::caseInsensitiveExact);
}

}  // namespace

Status get_backup_share_points(std::vector<SharePointRecord>& sharePoints) {
  try {
    std::vector<SharePointRecord> found;
    for (const Value& answer : searchSharePoints()) {
      const Dictionary* attributes = answer.dictionary();
      if (attributes == nullptr) continue;
      SharePointRecord record = SharePointRecord::recordWithDSDictionary(*attributes);
      if (record.isBackstowBackup() && record.isSharedOverVSP()) found.push_back(std::move(record));
    }
    sharePoints = std::move(found);
    return kSuccess;
  } catch (...) {
    return CANNOT_RETRIEVE_SHARE_POINTS_ERR;
  }
}

namespace {

constexpr const char* kServiceType = "_adisk._tcp";
constexpr std::uint16_t kServicePort = 311;
constexpr const char* kDefaultDomain = "";
constexpr const char* kHostsName = "";
constexpr const char* kVspService = "paddock_vsp";

bool isVspServiceRunning() {
  const Dictionary reply = services().pluginCommands->doCommand(
      kVspService, {{"command", "getState"}}, kVspService, std::nullopt);
  const std::string* state = reply.string("state");
  return state != nullptr && *state == "RUNNING";
}

void withdraw(NetServiceOwner& handler) {
  const auto current = handler.netService();
  if (current == nullptr) return;
  current->stop();
  handler.setNetService(nullptr);
}

std::string txtValue(const SharePointRecord& destination) {
  return "adVN=" + destination.nameOverVSP().value_or("") +
         ",adVF=0xa1,adVU=" + destination.backstowBackupUUID().value_or("");
}

void logLeftOut(const SharePointRecord& destination, const std::string& key, std::size_t size) {
  services().logger->log(kLogWarning, "paddock_sharing: The backup share point " +
                                          destination.nameOverVSP().value_or("") +
                                          " is not advertised: " + key + " of its TXT record has " +
                                          std::to_string(size) + " bytes, and " +
                                          std::to_string(kMaximumTxtString) + " are the most");
}

// Those from the first one on that does not fit into the record as a whole.
void logCut(const std::vector<SharePointRecord>& destinations, std::size_t first) {
  std::string names;
  for (std::size_t number = first; number < destinations.size(); ++number) {
    if (number > first) names += ", ";
    names += destinations[number].nameOverVSP().value_or("");
  }
  services().logger->log(kLogWarning, "paddock_sharing: A TXT record has " +
                                          std::to_string(kMaximumTxtRecord) +
                                          " bytes at the most, so that these backup share points "
                                          "are not advertised: " +
                                          names);
}

Dictionary txtEntries(const std::vector<SharePointRecord>& destinations) {
  const std::string system = "waMa=0,adVF=0x100";
  Dictionary entries{{"sys", system}};
  entries.reserve(destinations.size() + 1);
  std::size_t size = txtStringSize("sys", system);
  for (std::size_t number = 0; number < destinations.size(); ++number) {
    const std::string key = "dk" + std::to_string(number);
    std::string value = txtValue(destinations[number]);
    if (!fitsTxtString(key, value)) {
      logLeftOut(destinations[number], key, key.size() + 1 + value.size());
      continue;
    }
    size += txtStringSize(key, value);
    if (size > kMaximumTxtRecord) {
      logCut(destinations, number);
      break;
    }
    entries.set(key, std::move(value));
  }
  return entries;
}

}  // namespace

Status register_share_points_with_hailcast(NetServiceOwner& handler) {
  // A renewal that found less must not come after one that found more.
  const MutexLock renewal(handler.renewalMutex());
  std::vector<SharePointRecord> destinations;
  (void)get_backup_share_points(destinations);
  if (!isVspServiceRunning()) return kSuccess;
  withdraw(handler);
  if (destinations.empty()) return kSuccess;
  const auto service =
      services().netServices->createService(kDefaultDomain, kServiceType, kHostsName, kServicePort);
  handler.setNetService(service);
  service->setDelegate(&handler);
  service->setTxtRecordData(dataFromTxtRecordDictionary(txtEntries(destinations)));
  service->publish();
  return kSuccess;
}

}  // namespace paddock
