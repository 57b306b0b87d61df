#include "handler/folder_state.h"

#include <array>
#include <type_traits>
#include <variant>

#include "handler/request_keys.h"
#include "privileges/file_privs.h"
#include "store/share_point_reading.h"

namespace paddock {

namespace {

constexpr const char* kAclKey = "acl";
constexpr const char* kPosixErrorKey = "posixErr";
constexpr std::array kNamesOfPrincipals = {"displayName", "isUser"};

void append(std::string& text, const Value& value);

// Its length goes before it, so that no two sequences of texts read alike.
void append(std::string& text, char kind, std::string_view bytes) {
  text += kind;
  text += std::to_string(bytes.size());
  text += ':';
  text += bytes;
}

void append(std::string& text, const Array& array) {
  append(text, 'a', std::to_string(array.size()));
  for (const Value& element : array) append(text, element);
}

// Its entries come in the order of their keys.
void append(std::string& text, const Dictionary& dictionary) {
  append(text, 'd', std::to_string(dictionary.size()));
  for (const auto& entry : dictionary) {
    append(text, 'k', entry.key);
    append(text, entry.value);
  }
}

void append(std::string& text, const Data& data) {
  append(text, 'b', std::string(data.bytes.begin(), data.bytes.end()));
}

void append(std::string& text, const Value& value) {
  std::visit(
      [&text](const auto& held) {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, std::monostate>) {
          append(text, 'n', {});
        } else if constexpr (std::is_same_v<Held, bool>) {
          append(text, 't', held ? "1" : "0");
        } else if constexpr (std::is_integral_v<Held>) {
          append(text, 'i', std::to_string(held));
        } else if constexpr (std::is_same_v<Held, std::string>) {
          append(text, 's', held);
        } else {
          append(text, held);
        }
      },
      value.storage());
}

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
  std::string text;
  append(text, privileges);
  append(text, sharePoint);
  return text;
}

bool hasFolder(const Dictionary& settings) {
  return partOf(settings, kSharePointRecordKey).boolean(kIsSharedKey).value_or(false) ||
         !partOf(settings, kFileAccessPrivsKey).contains(kPosixErrorKey);
}

}  // namespace paddock
