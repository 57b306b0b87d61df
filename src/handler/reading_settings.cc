// The operations that read the settings.
#include "exports/shared_exports_parser.h"
#include "handler/folder_state.h"
#include "handler/request_keys.h"
#include "handler/sharing_request_handler.h"
#include "paddock/request_conditions.h"
#include "store/share_point_reading.h"
#include "volumes/volume_quotas.h"

namespace paddock {

namespace {

Status readVolumeQuotas(const std::string& path, Dictionary& settings) {
  Dictionary quotas;
  const Status status = get_volume_quota_info(path, quotas);
  settings.set(kVolumeQuotasKey, std::move(quotas));
  return status;
}

// The first step that fails ends the chain; the steps behind it have empty dictionaries.
Status readFolder(const std::string& path, Dictionary& settings) {
  settings.set(kPathKey, path);
  // `get_share_point` sees the exports as they were last read.
  refresh_exports();
  const Status status = readPrivilegesAndSharePoint(path, settings);
  if (status == kSuccess) return readVolumeQuotas(path, settings);
  settings.set(kVolumeQuotasKey, Dictionary());
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
  if (list) settings.set(kSharePointListKey, std::move(*list));
  return status;
}

}  // namespace

Dictionary SharingRequestHandler::readSettingsWithRequest(const Dictionary& request) {
  const std::string* path = requestPath(request);
  const std::lock_guard lock(*gSettingsDictLock);
  Dictionary settings;
  const Status status =
      path != nullptr ? readTaggedFolder(*path, settings) : readWholeServer(settings);
  Dictionary reply;
  reply.set(kConfigurationKey, std::move(settings));
  reply.set(kReadStatusKey, status);
  return reply;
}

Dictionary SharingRequestHandler::getSharePointListWithRequest(const Dictionary&) {
  Dictionary reply;
  const std::lock_guard lock(*gSettingsDictLock);
  const Status status = readWholeServer(reply);
  reply.set(kReadStatusKey, status);
  if (status != kSuccess) reply.set(kErrorKey, sharing_error_string(status));
  return reply;
}

}  // namespace paddock
