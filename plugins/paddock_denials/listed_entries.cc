#include "paddock_denials/listed_entries.h"

#include <cerrno>
#include <optional>

#include "base/guid.h"
#include "base/status.h"
#include "platform/linux/acl/sid_forms.h"
#include "protocol/keys.h"

namespace paddock {

namespace {

constexpr const char* kSharing = "paddock_sharing";
constexpr const char* kAcl = "acl";
constexpr int kUser = 0;  // of "isUser"

Dictionary ask(PluginCommands& siblings, const char* operation, const std::string& path,
               const char* statusKey, std::optional<Dictionary> privileges) {
  Dictionary command{{"command", operation},
                     {protocol::kOptionalArguments, Dictionary{{"path", path}}}};
  if (privileges) {
    command.set("configuration", Dictionary{{protocol::kFileAccessPrivs, std::move(*privileges)}});
  }
  Dictionary reply = siblings.doCommand(kSharing, command, kSharing, std::nullopt);
  const auto status = reply.integer(statusKey);
  const std::string* error = reply.string("error");
  if (!status) {
    throw DenialFailure(EIO,
                        path + ": " + (error != nullptr ? *error : "paddock_sharing is silent"));
  }
  if (*status != 0) {
    const auto number = static_cast<Status>(*status);
    throw DenialFailure(number, path + ": " + sharing_error_string(number));
  }
  return reply;
}

acl::Subject subjectOf(Membership& membership, const Guid& guid) {
  using Kind = acl::Subject::Kind;
  if (guid == nt_acl::foreignGuid(nt_acl::everyoneSid()) ||
      guid == nt_acl::foreignGuid(nt_acl::authenticatedUsersSid()))
    return {Kind::everyone, 0};
  Principal who;
  if (membership.guidToId(guid, who.id, who.type) != 0) return {};
  return {who.type == PrincipalType::user ? Kind::user : Kind::group, who.id};
}

}  // namespace

Array readList(PluginCommands& siblings, const std::string& path) {
  const Dictionary reply = ask(siblings, "readSettings", path, protocol::kReadStatus, std::nullopt);
  const Dictionary* configuration = reply.dictionary("configuration");
  const Dictionary* privileges =
      configuration != nullptr ? configuration->dictionary(protocol::kFileAccessPrivs) : nullptr;
  const Array* acl = privileges != nullptr ? privileges->array(kAcl) : nullptr;
  if (acl == nullptr) throw DenialFailure(EINVAL, "the list of " + path + " cannot be read");
  return *acl;
}

void writeList(PluginCommands& siblings, const std::string& path, const Array& acl) {
  ask(siblings, "writeSettings", path, protocol::kWriteStatus, Dictionary{{kAcl, acl}});
}

std::vector<acl::Rule> listedEntries(Membership& membership, const Array& acl) {
  std::vector<acl::Rule> entries;
  for (const Value& value : acl) {
    acl::Rule entry;
    const Dictionary* one = value.dictionary();
    const std::string* allow = one != nullptr ? one->string(protocol::kAllowPermission) : nullptr;
    const std::string* text = one != nullptr ? one->string("guid") : nullptr;
    const auto guid = text != nullptr ? parseGuid(*text) : std::nullopt;
    if (allow != nullptr && guid) {
      entry.allow = *allow == "YES";
      entry.permissions = static_cast<acl::Permission>(one->integer("bitmap").value_or(0));
      entry.flags = static_cast<acl::Flag>(one->integer("flags").value_or(0));
      entry.subject = subjectOf(membership, *guid);
    }
    entries.push_back(entry);
  }
  return entries;
}

Dictionary denialLike(const Dictionary& entry, std::uint32_t uid) {
  // An entry that was inherited from a parent folder; this one stands here.
  const std::int64_t flags = entry.integer("flags").value_or(0) & ~std::int64_t{acl::kInherited};
  return {{protocol::kIsUser, kUser},
          {protocol::kUniqueID, uid},
          {protocol::kAllowPermission, "NO"},
          {"bitmap", entry.integer("bitmap").value_or(0)},
          {"flags", flags}};
}

Dictionary sentBack(const Dictionary& entry) {
  const std::string* allow = entry.string(protocol::kAllowPermission);
  const std::string* guid = entry.string("guid");
  if (allow == nullptr || guid == nullptr) {
    throw DenialFailure(EINVAL, "the list has an entry of a kind that cannot be written back");
  }
  return {{"guid", *guid},
          {protocol::kAllowPermission, *allow},
          {"bitmap", entry.integer("bitmap").value_or(0)},
          {"flags", entry.integer("flags").value_or(0)}};
}

}  // namespace paddock
