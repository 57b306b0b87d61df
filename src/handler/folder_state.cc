#include "handler/folder_state.h"

#include <array>

#include "base/state_text.h"
#include "handler/request_keys.h"
#include "privileges/file_privs.h"
#include "store/share_point_reading.h"

namespace paddock {

namespace {

constexpr const char* kAclKey = "acl";
constexpr const char* kPosixErrorKey = "posixErr";
constexpr std::array kNamesOfPrincipals = {"displayName", "isUser"};

Dictionary sharePointForm(const SharePointRecord* record) {
  if (record == nullptr) return {{kIsSharedKey, false}};
  Dictionary form = record->dictionary();
  form.set(kIsSharedKey, true);
  return form;
}

Array withoutNames(const Array& acl) {
  Array entries;
  entries.reserve(acl.size());
  for (const Value& value : acl) {
    Dictionary entry = value.dictionary() != nullptr ? *value.dictionary() : Dictionary();
    for (const char* key : kNamesOfPrincipals) entry.erase(key);
    entries.emplace_back(std::move(entry));
  }
  return entries;
}

Dictionary partOf(const Dictionary& settings, const char* key) {
  const Dictionary* part = settings.dictionary(key);
  return part != nullptr ? *part : Dictionary();
}

}  // namespace

Status readPrivilegesAndSharePoint(const std::string& path, Dictionary& settings) {
  Dictionary privileges;
  Status status = read_file_privs(path, privileges);
  settings.set(kFileAccessPrivsKey, std::move(privileges));
  Dictionary sharePoint;
  if (status == kSuccess) {
    std::unique_ptr<SharePointRecord> record;
    status = get_share_point(path, record);
    sharePoint = sharePointForm(record.get());
  }
  settings.set(kSharePointRecordKey, std::move(sharePoint));
  return status;
}

std::string folderState(const Dictionary& settings) {
  Dictionary privileges = partOf(settings, kFileAccessPrivsKey);
  const Dictionary sharePoint = partOf(settings, kSharePointRecordKey);
  privileges.erase(kPathKey);
  if (const Array* acl = privileges.array(kAclKey)) privileges.set(kAclKey, withoutNames(*acl));
  return stateText(privileges) + stateText(sharePoint);
}

bool hasFolder(const Dictionary& settings) {
  return partOf(settings, kSharePointRecordKey).boolean(kIsSharedKey).value_or(false) ||
         !partOf(settings, kFileAccessPrivsKey).contains(kPosixErrorKey);
}

}  // namespace paddock
