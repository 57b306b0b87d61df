#include "handler/folder_state.h"

#include <array>

#include "base/state_text.h"
#include "handler/request_keys.h"
#include "platform/acl_list.h"
#include "platform/file_attributes.h"
#include "platform/services.h"
#include "privileges/file_privs.h"
#include "privileges/get_acl.h"
#include "protocol/keys.h"
#include "store/directory_access.h"
#include "store/share_point_reading.h"

namespace paddock {

namespace {

constexpr const char* kAclKey = "acl";
constexpr std::array kNamesOfPrincipals = {protocol::kDisplayName, protocol::kIsUser};

Dictionary sharePointForm(const SharePointRecord* record) {
  if (record == nullptr) return {{protocol::kIsShared, false}};
  Dictionary form = record->dictionary();
  form.set(protocol::kIsShared, true);
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

Value modeOf(const std::string& path) {
  FileAttributes attributes;
  const int error = services().fileAttributes->read(path, attributes);
  if (error != 0 || !attributes.permissions) return sharing_error_string(error);
  return *attributes.permissions;
}

// A complete list without entries denies everything, and without a list the mode decides: neither
// shows in the entries.
const char* listOf(const std::string& path) {
  const OwnedAcl list(services().acl->acl_get_file(path, acl::kTypeExtended), "folder_state");
  if (!list) return "none";
  if (list.get()->undecodable) return "undecodable";
  return list.get()->complete.value_or(false) ? "complete" : "with the mode behind it";
}

Value recordOf(const std::string& path) {
  try {
    DirectoryRecordPtr record;
    const Status status =
        get_local_ds_record(schema::kDirectoryPath, path, schema::kSharePoints, record);
    if (status != kSuccess) return sharing_error_string(status);
    return record != nullptr ? record->getAllAttributesAndValues() : Dictionary();
  } catch (...) {
    return reason_of_current_exception();
  }
}

}  // namespace

Status readPrivilegesAndSharePoint(const std::string& path, Dictionary& settings) {
  Dictionary privileges;
  Status status = read_file_privs(path, privileges);
  settings.set(protocol::kFileAccessPrivs, std::move(privileges));
  Dictionary sharePoint;
  if (status == kSuccess) {
    std::unique_ptr<SharePointRecord> record;
    status = get_share_point(path, record);
    sharePoint = sharePointForm(record.get());
  }
  settings.set(protocol::kSharePointRecord, std::move(sharePoint));
  return status;
}

Dictionary readUnlistedState(const std::string& path) {
  return {{"mode", modeOf(path)}, {"list", listOf(path)}, {"record", recordOf(path)}};
}

std::string folderState(const Dictionary& settings, const Dictionary& unlisted) {
  Dictionary privileges = partOf(settings, protocol::kFileAccessPrivs);
  const Dictionary sharePoint = partOf(settings, protocol::kSharePointRecord);
  privileges.erase(kPathKey);
  if (const Array* acl = privileges.array(kAclKey)) privileges.set(kAclKey, withoutNames(*acl));
  return stateText(privileges) + stateText(sharePoint) + stateText(unlisted);
}

bool hasFolder(const Dictionary& settings) {
  return partOf(settings, protocol::kSharePointRecord)
             .boolean(protocol::kIsShared)
             .value_or(false) ||
         !partOf(settings, protocol::kFileAccessPrivs).contains(protocol::kPosixErr);
}

}  // namespace paddock
