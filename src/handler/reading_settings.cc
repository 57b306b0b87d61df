// The operations that read the settings.
#include "handler/request_keys.h"
#include "handler/sharing_request_handler.h"
#include "privileges/file_privs.h"
#include "store/share_point_reading.h"
#include "volumes/volume_quotas.h"

namespace paddock {

namespace {

Dictionary sharePointForm(const SharePointRecord* record) {
  if (record == nullptr) return {{kIsSharedKey, false}};
  Dictionary form = record->dictionary();
  form.set(kIsSharedKey, true);
  return form;
}

Status readPrivileges(const std::string& path, Dictionary& settings) {
  Dictionary privileges;
  const Status status = read_file_privs(path, privileges);
  settings.set(kFileAccessPrivsKey, std::move(privileges));
  return status;
}

Status readSharePoint(const std::string& path, Dictionary& settings) {
  std::unique_ptr<SharePointRecord> record;
  const Status status = get_share_point(path, record);
  settings.set(kSharePointRecordKey, sharePointForm(record.get()));
  return status;
}

Status readVolumeQuotas(const std::string& path, Dictionary& settings) {
  Dictionary quotas;
  const Status status = get_volume_quota_info(path, quotas);
  settings.set(kVolumeQuotasKey, std::move(quotas));
  return status;
}

// The first step that fails ends the chain; the steps behind it have empty dictionaries.
Status readFolder(const std::string& path, Dictionary& settings) {
  settings.set(kPathKey, path);
  Status status = readPrivileges(path, settings);
  if (status == kSuccess) {
    status = readSharePoint(path, settings);
  } else {
    settings.set(kSharePointRecordKey, Dictionary());
  }
  if (status == kSuccess) return readVolumeQuotas(path, settings);
  settings.set(kVolumeQuotasKey, Dictionary());
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
  const Status status = path != nullptr ? readFolder(*path, settings) : readWholeServer(settings);
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
