// The operation that writes the settings and reads them back.
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <utility>

#include "exports/shared_exports_parser.h"
#include "handler/folder_state.h"
#include "handler/request_keys.h"
#include "handler/shared_folder_check.h"
#include "handler/sharing_request_handler.h"
#include "paddock/request_conditions.h"
#include "privileges/file_privs.h"
#include "store/served_report.h"
#include "store/share_point_writing.h"
#include "volumes/volume_quotas.h"

namespace paddock {

namespace {

constexpr const char* kCredentialsKey = "dsCredentials";
constexpr const char* kWriteStatusKey = "writeStatus";
constexpr const char* kReadErrorKey = "readError";
constexpr const char* kWriteErrorKey = "writeError";

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
  const Value* isShared = settings.find(kIsSharedKey);
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
  const Dictionary* settings = configuration.dictionary(kSharePointRecordKey);
  if (settings == nullptr) return sharePoints;
  sharePoints.push_back(asksForRemoval(*settings)
                            ? removalOf(path)
                            : SharePointRecord::recordWithDictionary(*settings));
  return sharePoints;
}

std::vector<SharePointRecord> listedSharePoints(const Dictionary& configuration) {
  std::vector<SharePointRecord> sharePoints;
  const Array& list = arrayOrEmpty(configuration.array(kSharePointListKey));
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
  const Dictionary* privileges = configuration.dictionary(kFileAccessPrivsKey);
  if (privileges == nullptr) return kSuccess;
  if (!is_folder_as_shared(folders, path)) return CANNOT_CHANGE_PRIVS_ERR;
  return write_file_privs(path, *privileges);
}

Status writeVolumeQuotas(const std::string& path, const Dictionary& configuration) {
  const Dictionary* quotas = configuration.dictionary(kVolumeQuotasKey);
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
  return {{kOptionalArgumentsKey, Dictionary{{kPathKey, *path}}}};
}

Dictionary replyFor(Status writeStatus, Dictionary readBack) {
  Dictionary configuration;
  if (Value* found = readBack.find(kConfigurationKey); found != nullptr && found->dictionary()) {
    configuration = std::move(*found->dictionary());
  }
  Dictionary reply;
  reply.set(kWriteStatusKey, writeStatus);
  // Deliberate: both are looked up inside the configuration, where reading puts neither.
  reply.set(kReadStatusKey, configuration.integer(kReadStatusKey).value_or(kSuccess));
  if (const Value* error = configuration.find(kErrorKey)) reply.set(kReadErrorKey, *error);
  if (writeStatus != kSuccess) reply.set(kWriteErrorKey, sharing_error_string(writeStatus));
  reply.set(kConfigurationKey, std::move(configuration));
  return reply;
}

}  // namespace

Dictionary SharingRequestHandler::writeSettingsWithRequest(const Dictionary& request) {
  const std::string* path = requestPath(request);
  const Dictionary& configuration = dictionaryOrEmpty(request.dictionary(kConfigurationKey));
  const Array& credentials = arrayOrEmpty(configuration.array(kCredentialsKey));
  Status writeStatus = kSuccess;
  std::uint64_t write = 0;
  std::vector<SharePointRecord> sharePoints;
  {
    const std::lock_guard lock(*gSettingsDictLock);
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
  Dictionary readBack = readSettingsWithRequest(readBackRequest(path));
  if (gWrites != write) forgetReplyState();
  return replyFor(writeStatus, std::move(readBack));
}

}  // namespace paddock
