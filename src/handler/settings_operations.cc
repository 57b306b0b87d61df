// The operations that read the settings.

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <utility>

#include "base/mutex.h"
#include "exports/shared_exports_parser.h"
#include "handler/folder_state.h"
#include "handler/request_keys.h"
#include "handler/shared_folder_check.h"
#include "handler/sharing_request_handler.h"
#include "paddock/request_conditions.h"
#include "privileges/file_privs.h"
#include "protocol/keys.h"
#include "store/share_point_reading.h"
#include "store/share_point_writing.h"
#include "store/sharing_services.h"
#include "volumes/volume_quotas.h"

namespace paddock {

namespace {

Status readVolumeQuotas(const std::string& path, Dictionary& settings) {
  Dictionary quotas;
  const Status status = get_volume_quota_info(path, quotas);
  settings.set(protocol::kVolumeQuotas, std::move(quotas));
  return status;
}

// The first step that fails ends the chain; the steps behind it have empty dictionaries.
Status readFolder(const std::string& path, Dictionary& settings) {
  settings.set(kPathKey, path);
  // `get_share_point` sees the exports as they were last read.
  refresh_exports();
  const Status status = readPrivilegesAndSharePoint(path, settings);
  if (status == kSuccess) return readVolumeQuotas(path, settings);
  settings.set(protocol::kVolumeQuotas, Dictionary());
  return status;
}

// The same, and has the client know which state it was answered.
Status readTaggedFolder(const std::string& path, Dictionary& settings) {
  RequestConditions* const conditions = currentRequestConditions();
  if (conditions == nullptr) return readFolder(path, settings);
  const Dictionary unlisted = readUnlistedState(path);
  const Status status = readFolder(path, settings);
  conditions->setReplyState(folderState(settings, unlisted));
  return status;
}

Status readWholeServer(Dictionary& settings) {
  std::optional<Array> list;
  const Status status = read_sharepoints(nullptr, list);
  if (list) settings.set(protocol::kSharePointList, std::move(*list));
  return status;
}

}  // namespace

Dictionary SharingRequestHandler::readSettingsWithRequest(const Dictionary& request) {
  return readSettings(request, SettingsLockGuard::Wait::bounded);
}

Dictionary SharingRequestHandler::readSettings(const Dictionary& request,
                                               SettingsLockGuard::Wait wait) {
  const std::string* path = requestPath(request);
  const SettingsLockGuard lock("readSettings", path, wait);
  Dictionary settings;
  const Status status =
      path != nullptr ? readTaggedFolder(*path, settings) : readWholeServer(settings);
  Dictionary reply;
  reply.set(kConfigurationKey, std::move(settings));
  reply.set(protocol::kReadStatus, status);
  return reply;
}

Dictionary SharingRequestHandler::getSharePointListWithRequest(const Dictionary&) {
  Dictionary reply;
  const SettingsLockGuard lock("getSharePointList", nullptr);
  const Status status = readWholeServer(reply);
  reply.set(protocol::kReadStatus, status);
  if (status != kSuccess) reply.set(kErrorKey, sharing_error_string(status));
  return reply;
}

// The operation that writes the settings and reads them back.
namespace {

// Writing requests so far.
std::atomic<std::uint64_t> gWrites{0};

const Dictionary& dictionaryOrEmpty(const Dictionary* dictionary) {
  static const Dictionary empty;
  return dictionary != nullptr ? *dictionary : empty;
}

const Array& arrayOrEmpty(const Array* array) {
  static const Array empty;
  return array != nullptr ? *array : empty;
}

// Only the exact text "NO" and a number that is false ask for removal.
bool asksForRemoval(const Dictionary& settings) {
  const Value* isShared = settings.find(protocol::kIsShared);
  if (isShared == nullptr) return false;
  if (const std::string* text = isShared->string()) return *text == "NO";
  return isShared->isNumber() && readBoolean(isShared) == false;
}

SharePointRecord removalOf(const std::string& path) {
  SharePointRecord record = SharePointRecord::record();
  record.setPath(path);
  record.setDeleted(true);
  return record;
}

std::vector<SharePointRecord> folderSharePoint(const std::string& path,
                                               const Dictionary& configuration) {
  std::vector<SharePointRecord> sharePoints;
  const Dictionary* settings = configuration.dictionary(protocol::kSharePointRecord);
  if (settings == nullptr) return sharePoints;
  sharePoints.push_back(asksForRemoval(*settings)
                            ? removalOf(path)
                            : SharePointRecord::recordWithDictionary(*settings));
  return sharePoints;
}

std::vector<SharePointRecord> listedSharePoints(const Dictionary& configuration) {
  std::vector<SharePointRecord> sharePoints;
  const Array& list = arrayOrEmpty(configuration.array(protocol::kSharePointList));
  sharePoints.reserve(list.size());
  for (const Value& element : list) {
    const Dictionary* settings = element.dictionary();
    if (settings != nullptr)
      sharePoints.push_back(SharePointRecord::recordWithDictionary(*settings));
  }
  return sharePoints;
}

Status writePrivileges(SharedFolders* folders, const std::string& path,
                       const Dictionary& configuration) {
  const Dictionary* privileges = configuration.dictionary(protocol::kFileAccessPrivs);
  if (privileges == nullptr) return kSuccess;
  if (!is_folder_as_shared(folders, path)) return CANNOT_CHANGE_PRIVS_ERR;
  return write_file_privs(path, *privileges);
}

Status writeVolumeQuotas(const std::string& path, const Dictionary& configuration) {
  const Dictionary* quotas = configuration.dictionary(protocol::kVolumeQuotas);
  return quotas != nullptr ? set_volume_quota_info(path, *quotas) : kSuccess;
}

Status firstFailure(std::initializer_list<Status> statuses) {
  for (const Status status : statuses) {
    if (status != kSuccess) return status;
  }
  return kSuccess;
}

// Throws PreconditionFailed when the client wants its change in another state than the present one.
void requireStateOfClient(const std::string* path) {
  const RequestConditions* conditions = currentRequestConditions();
  if (conditions == nullptr || !conditions->hasIfMatch()) return;
  // The whole server has no tag, so that only "any state" can be meant of it.
  if (path == nullptr) return conditions->require(std::nullopt, true);
  const Dictionary unlisted = readUnlistedState(*path);
  Dictionary settings;
  (void)readPrivilegesAndSharePoint(*path, settings);
  conditions->require(folderState(settings, unlisted), hasFolder(settings));
}

// A state that another request may have changed since is not the one that this request left.
void forgetReplyState() {
  if (RequestConditions* conditions = currentRequestConditions()) {
    conditions->setReplyState(std::nullopt);
  }
}

Dictionary readBackRequest(const std::string* path) {
  if (path == nullptr) return {};
  return {{protocol::kOptionalArguments, Dictionary{{kPathKey, *path}}}};
}

Dictionary replyFor(Status writeStatus, Dictionary readBack) {
  Dictionary configuration;
  if (Value* found = readBack.find(kConfigurationKey); found != nullptr && found->dictionary()) {
    configuration = std::move(*found->dictionary());
  }
  Dictionary reply;
  reply.set(protocol::kWriteStatus, writeStatus);
  // Deliberate: both are looked up inside the configuration, where reading puts neither.
  reply.set(protocol::kReadStatus, configuration.integer(protocol::kReadStatus).value_or(kSuccess));
  if (const Value* error = configuration.find(kErrorKey)) reply.set(protocol::kReadError, *error);
  if (writeStatus != kSuccess) reply.set(protocol::kWriteError, sharing_error_string(writeStatus));
  reply.set(kConfigurationKey, std::move(configuration));
  return reply;
}

}  // namespace

Dictionary SharingRequestHandler::writeSettingsWithRequest(const Dictionary& request) {
  const std::string* path = requestPath(request);
  const Dictionary& configuration = dictionaryOrEmpty(request.dictionary(kConfigurationKey));
  const Array& credentials = arrayOrEmpty(configuration.array(protocol::kDsCredentials));
  Status writeStatus = kSuccess;
  std::uint64_t write = 0;
  std::vector<SharePointRecord> sharePoints;
  {
    const SettingsLockGuard lock("writeSettings", path);
    // First, so that nothing of this request is based on an exports file of before.
    refresh_exports();
    requireStateOfClient(path);
    write = ++gWrites;
    // Each step runs whatever became of the one before.
    const Status privStatus =
        path != nullptr ? writePrivileges(sharedFolders_, *path, configuration) : kSuccess;
    sharePoints =
        path != nullptr ? folderSharePoint(*path, configuration) : listedSharePoints(configuration);
    const Status quotaStatus = path != nullptr ? writeVolumeQuotas(*path, configuration) : kSuccess;
    const SharedFolderNotes notes(sharedFolders_, sharePoints);
    const Status spStatus = write_sharepoints(sharePoints, context(), credentials, *this);
    notes.take(sharePoints);
    writeStatus = firstFailure({privStatus, quotaStatus, spStatus});
  }
  // The lock is free here, since reading takes it again, and since servers are slow to ask.
  log_what_is_served(sharePoints);
  // The change is done: its reply is waited for, however long that takes.
  Dictionary readBack = readSettings(readBackRequest(path), SettingsLockGuard::Wait::unbounded);
  if (gWrites != write) forgetReplyState();
  return replyFor(writeStatus, std::move(readBack));
}

}  // namespace paddock
