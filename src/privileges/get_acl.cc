#include "privileges/get_acl.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <utility>

#include "platform/acl.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "privileges/ace_dictionary.h"
#include "privileges/module_logger.h"
#include "privileges/principal_names.h"
#include "protocol/keys.h"

namespace paddock {

OwnedAcl::~OwnedAcl() {
  if (list_ == nullptr || services().acl->acl_free(list_) == 0) return;
  const int error = errno;
  get_logger(function_).log(
      kLogError, std::string(function_) + " acl_free err. errno = " + std::to_string(error));
}

namespace {

constexpr const char* kFunction = "get_acl";

void logError(const std::string& text) { get_logger(kFunction).log(kLogError, text); }

std::optional<Guid> qualifierOf(acl::Entry* entry) {
  acl::AclService& service = *services().acl;
  Guid* qualifier = service.acl_get_qualifier(entry);
  if (qualifier == nullptr) return std::nullopt;
  const Guid guid = *qualifier;
  if (service.acl_free(qualifier) != 0) {
    logError("acl_free(qualifier) err. errno = " + std::to_string(errno));
  }
  return guid;
}

// Deliberate: an entry that is neither allow nor deny, or whose tag cannot be read, keeps the value
// of the entry before it.
void readTag(acl::Entry* entry, std::optional<std::string>& allowPermission) {
  int tag = acl::kUndefinedTag;
  const int result = services().acl->acl_get_tag_type(entry, tag);
  if (result != 0) {
    logError("acl_get_tag_type == " + sharing_error_string(result));
  } else if (tag == acl::kExtendedAllow) {
    allowPermission = ace::kAllow;
  } else if (tag == acl::kExtendedDeny) {
    allowPermission = ace::kDeny;
  }
}

Status readPermissions(acl::Entry* entry, std::uint32_t& bitmap) {
  acl::AclService& service = *services().acl;
  acl::Permset* permset = nullptr;
  const int result = service.acl_get_permset(entry, permset);
  if (result != 0) {
    logError("acl_get_permset == " + sharing_error_string(result));
    return ACE_PERMSET_NOT_FOUND_ERR;
  }
  for (const acl::Permission permission : acl::kPermissions) {
    if (service.acl_get_perm_np(permset, permission) == 1) bitmap |= permission;
  }
  return kSuccess;
}

Status readFlags(acl::Entry* entry, std::uint32_t& flags) {
  acl::AclService& service = *services().acl;
  acl::Flagset* flagset = nullptr;
  const int result = service.acl_get_flagset_np(entry, flagset);
  if (result != 0) {
    logError("acl_get_flagset_np == " + sharing_error_string(result));
    return ACE_FLAGSET_NOT_FOUND_ERR;
  }
  for (const acl::Flag flag : acl::kFlags) {
    if (service.acl_get_flag_np(flagset, flag) == 1) flags |= flag;
  }
  return kSuccess;
}

// `allowPermission` is what the entries so far said, and becomes what this one says.
Status readEntry(acl::Entry* entry, std::optional<std::string>& allowPermission, Array& entries) {
  const auto guid = qualifierOf(entry);
  if (!guid) {
    logError("acl_get_qualifier returned nil");
    return ACL_QUALIFIER_NOT_FOUND_ERR;
  }
  const PrincipalName name = principal_name(*guid);
  readTag(entry, allowPermission);
  std::uint32_t bitmap = 0;
  if (const Status status = readPermissions(entry, bitmap); status != kSuccess) return status;
  std::uint32_t flags = 0;
  if (const Status status = readFlags(entry, flags); status != kSuccess) return status;
  Dictionary dictionary{{protocol::kDisplayName, name.displayName}, {ace::kGuid, guidText(*guid)}};
  // Deliberate: while nothing is known of allowing or denying, the dictionary ends here.
  if (allowPermission) {
    dictionary.set(protocol::kAllowPermission, *allowPermission);
    dictionary.set(ace::kBitmap, bitmap);
    dictionary.set(ace::kFlags, flags);
    dictionary.set(protocol::kIsUser, name.kind);
  }
  entries.emplace_back(std::move(dictionary));
  return kSuccess;
}

}  // namespace

Status get_acl(const std::string& path, Array& entries) {
  acl::AclService& service = *services().acl;
  const OwnedAcl list(service.acl_get_file(path, acl::kTypeExtended), kFunction);
  if (!list) return kSuccess;
  if (const int invalid = service.acl_valid(list.get()); invalid != 0) {
    logError("acl_valid error = " + std::to_string(invalid));
    return INVALID_ACL_ERR;
  }
  std::optional<std::string> allowPermission;
  acl::Entry* entry = nullptr;
  for (int which = acl::kFirstEntry; service.acl_get_entry(list.get(), which, entry) == 0;
       which = acl::kNextEntry) {
    const Status status = readEntry(entry, allowPermission, entries);
    if (status != kSuccess) return status;
  }
  return kSuccess;
}

namespace {

// Without its last component: "/a" for "/a/b" and "/a/b/", "/" for "/a" and "/".
std::string parentOf(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  path.resize(slash);
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path.empty() ? "/" : path;
}

std::int64_t flagsOf(const Value& entry) {
  const Dictionary* dictionary = entry.dictionary();
  return dictionary != nullptr ? dictionary->integer(ace::kFlags).value_or(0) : 0;
}

bool has(const Value& entry, acl::Flag flag) { return (flagsOf(entry) & flag) != 0; }

}  // namespace

Status inherit_parent_ACL(const std::string& path, Array& entries) {
  if (const Status status = get_acl(path, entries); status != kSuccess) return status;
  std::erase_if(entries, [](const Value& entry) { return has(entry, acl::kInherited); });
  Array parents;
  if (const Status status = get_acl(parentOf(path), parents); status != kSuccess) return status;
  for (Value& entry : parents) {
    // Deliberate: also for a folder, what folders alone inherit is not taken over.
    if (!has(entry, acl::kFileInherit)) continue;
    entry.dictionary()->set(ace::kFlags, flagsOf(entry) | acl::kInherited);
    entries.push_back(std::move(entry));
  }
  return kSuccess;
}

}  // namespace paddock
