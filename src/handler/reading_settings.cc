// The operations that read the settings.
#include "handler/request_keys.h"
#include "handler/sharing_request_handler.h"
#include "store/share_point_reading.h"

namespace paddock {

namespace {

constexpr const char* kFileAccessPrivsKey = "fileAccessPrivs";
constexpr const char* kVolumeQuotasKey = "volumeQuotas";
constexpr const char* kErrorKey = "error";

Dictionary sharePointForm(const SharePointRecord* record) {
  if (record == nullptr) return {{kIsSharedKey, false}};
  Dictionary form = record->dictionary();
  form.set(kIsSharedKey, true);
  return form;
}

Status readFolder(const std::string& path, Dictionary& settings) {
  settings.set(kFileAccessPrivsKey, Dictionary());
  std::unique_ptr<SharePointRecord> record;
  const Status status = get_share_point(path, record);
  settings.set(kSharePointRecordKey, sharePointForm(record.get()));
  if (status != kSuccess) settings.set(kVolumeQuotasKey, Dictionary());
  settings.set(kPathKey, path);
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
