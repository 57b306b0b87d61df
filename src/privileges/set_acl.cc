#include "privileges/set_acl.h"

#include <array>
#include <cerrno>
#include <optional>

#include "platform/acl.h"
#include "platform/file_attributes.h"
#include "platform/logger.h"
#include "platform/membership.h"
#include "platform/services.h"
#include "privileges/ace_dictionary.h"
#include "privileges/get_acl.h"
#include "privileges/module_logger.h"
#include "protocol/keys.h"

namespace paddock {

namespace {

constexpr const char* kFunction = "set_acl";
constexpr std::int64_t kLargestId = 0xFFFFFFFF;
constexpr std::size_t kLoggedText = 100;

// What a step leaves: nothing to go on, or the result with which the operation ends.
using End = std::optional<Status>;
constexpr End kGoOn = std::nullopt;
// Deliberate: some failures are reported as a success that changed nothing.
constexpr End kQuietEnd = kSuccess;

// The permissions in their order of adding; a bit that has a name for files and another one for
// folders is added under both.
constexpr std::array<acl::Permission, 17> kPermissionNames = {acl::kReadData,
                                                              acl::kReadData,
                                                              acl::kWriteData,
                                                              acl::kWriteData,
                                                              acl::kExecute,
                                                              acl::kExecute,
                                                              acl::kDelete,
                                                              acl::kAppendData,
                                                              acl::kAppendData,
                                                              acl::kDeleteChild,
                                                              acl::kReadAttributes,
                                                              acl::kWriteAttributes,
                                                              acl::kReadExtendedAttributes,
                                                              acl::kWriteExtendedAttributes,
                                                              acl::kReadSecurity,
                                                              acl::kWriteSecurity,
                                                              acl::kChangeOwner};

void logError(const std::string& text) { get_logger(kFunction).log(kLogError, text); }
void logDebug(const std::string& text) { get_logger(kFunction).log(kLogDebug, text); }

void logFailure(const char* call, int result) {
  logError(std::string(call) + " failed = " + std::to_string(result));
}

bool hasValidAcl(const std::string& path) {
  acl::AclService& service = *services().acl;
  const OwnedAcl list(service.acl_get_file(path, acl::kTypeExtended), kFunction);
  return list && service.acl_valid(list.get()) == 0;
}

End setTag(acl::Entry* entry, const Dictionary& dictionary) {
  const std::string* allow = dictionary.string(protocol::kAllowPermission);
  if (allow == nullptr || (*allow != ace::kAllow && *allow != ace::kDeny)) return kQuietEnd;
  const int tag = *allow == ace::kAllow ? acl::kExtendedAllow : acl::kExtendedDeny;
  const int result = services().acl->acl_set_tag_type(entry, tag);
  if (result == 0) return kGoOn;
  logFailure("acl_set_tag_type", result);
  return CANNOT_SET_ACL_TAG_TYPE_ERR;
}

End setGivenGuid(acl::Entry* entry, const std::string& text) {
  const auto guid = parseGuid(text);
  if (!guid) {
    logError("no guid: " + text.substr(0, kLoggedText));
    return CANNOT_SET_ACL_QUALIFIER_ERR;
  }
  const int result = services().acl->acl_set_qualifier(entry, *guid);
  if (result == 0) return kGoOn;
  logFailure("acl_set_qualifier", result);
  return CANNOT_SET_ACL_QUALIFIER_ERR;
}

// 0 or an errno.
int mapId(std::uint32_t id, PrincipalType type, Guid& guid) {
  Membership& membership = *services().membership;
  return type == PrincipalType::user ? membership.uidToGuid(id, guid)
                                     : membership.gidToGuid(id, guid);
}

End setMappedGuid(acl::Entry* entry, const char* key, std::int64_t id, PrincipalType type) {
  if (id < 0 || id > kLargestId) {
    logError(std::string(key) + " is no id of 32 bits");
    return CANNOT_SET_ACL_QUALIFIER_ERR;
  }
  Guid guid;
  if (const int error = mapId(static_cast<std::uint32_t>(id), type, guid); error != 0) {
    const char* call = type == PrincipalType::user ? "mbr_uid_to_uuid" : "mbr_gid_to_uuid";
    logError(std::string(call) + " error = " + std::to_string(error));
    return CANNOT_SET_ACL_QUALIFIER_ERR;
  }
  const int result = services().acl->acl_set_qualifier(entry, guid);
  if (result == 0) return kGoOn;
  logFailure("acl_set_qualifier", result);
  // Deliberate: the call's own result, where a GUID that was given has a status.
  return result;
}

// Whatever is there and not the user's number is a group, what is no number at all included.
std::optional<PrincipalType> readKind(const Value* value) {
  if (value == nullptr) return std::nullopt;
  return readId(value) == ace::kUserKind ? PrincipalType::user : PrincipalType::group;
}

End setQualifier(acl::Entry* entry, const Dictionary& dictionary) {
  if (const std::string* guid = dictionary.string(ace::kGuid)) return setGivenGuid(entry, *guid);
  const auto type = readKind(dictionary.find(protocol::kIsUser));
  if (!type) {
    logError("no ug Type");
    return ACL_UG_TYPE_NOT_FOUND_ERR;
  }
  const bool user = *type == PrincipalType::user;
  const char* key = user ? protocol::kUniqueID : protocol::kGroupID;
  const auto id = readId(dictionary.find(key));
  if (id) return setMappedGuid(entry, key, *id, *type);
  logError(std::string("no ") + key);
  return user ? ACL_UNIQUE_ID_NOT_FOUND_ERR : ACL_GROUP_ID_NOT_FOUND_ERR;
}

// The entry's own set, emptied; null when that failed.
acl::Permset* emptyPermset(acl::Entry* entry) {
  acl::AclService& service = *services().acl;
  acl::Permset* permset = nullptr;
  if (const int result = service.acl_get_permset(entry, permset); result != 0) {
    logFailure("acl_get_permset", result);
    return nullptr;
  }
  if (const int result = service.acl_clear_perms(permset); result != 0) {
    logFailure("acl_clear_perms", result);
    return nullptr;
  }
  return permset;
}

End setPermissions(acl::Entry* entry, std::uint32_t bitmap) {
  acl::Permset* permset = emptyPermset(entry);
  if (permset == nullptr) return kQuietEnd;
  for (const acl::Permission permission : kPermissionNames) {
    if (add_perm_if_set(bitmap, permset, permission) != 0) return kQuietEnd;
  }
  logDebug("call acl_set_permset");
  const int result = services().acl->acl_set_permset(entry, permset);
  if (result == 0) return kGoOn;
  logFailure("acl_set_permset", result);
  return CANNOT_SET_ACE_PERMSET_ERR;
}

acl::Flagset* emptyFlagset(acl::Entry* entry) {
  acl::AclService& service = *services().acl;
  acl::Flagset* flagset = nullptr;
  if (const int result = service.acl_get_flagset_np(entry, flagset); result != 0) {
    logFailure("acl_get_flagset_np", result);
    return nullptr;
  }
  if (const int result = service.acl_clear_flags_np(flagset); result != 0) {
    logFailure("acl_clear_flags_np", result);
    return nullptr;
  }
  return flagset;
}

End setFlags(acl::Entry* entry, std::uint32_t flags) {
  acl::Flagset* flagset = emptyFlagset(entry);
  if (flagset == nullptr) return kQuietEnd;
  for (const acl::Flag flag : acl::kFlags) {
    if (add_flag_if_set(flags, flagset, flag) != 0) return kQuietEnd;
  }
  const int result = services().acl->acl_set_flagset_np(entry, flagset);
  if (result == 0) return kGoOn;
  logFailure("acl_set_flagset_np", result);
  return CANNOT_SET_ACE_FLAGSET_ERR;
}

End appendEntry(acl::List* list, const Dictionary& dictionary) {
  logDebug("Enter set_acl loop");
  logDebug("call acl_create_entry");
  acl::Entry* entry = nullptr;
  if (const int result = services().acl->acl_create_entry(list, entry); result != 0) {
    logFailure("acl_create_entry", result);
    return CANNOT_CREATE_ACL_ENTRY_ERR;
  }
  if (const End end = setTag(entry, dictionary)) return end;
  if (const End end = setQualifier(entry, dictionary)) return end;
  if (const End end = setPermissions(entry, readBits(dictionary.find(ace::kBitmap)))) return end;
  return setFlags(entry, readBits(dictionary.find(ace::kFlags)));
}

End appendEntries(acl::List* list, const Array& entries) {
  static const Dictionary kNothing;
  logDebug("Begin set_acl loop");
  for (const Value& entry : entries) {
    const Dictionary* dictionary = entry.dictionary();
    if (const End end = appendEntry(list, dictionary != nullptr ? *dictionary : kNothing)) {
      return end;
    }
  }
  return kGoOn;
}

Status store(const std::string& path, acl::List* list) {
  acl::AclService& service = *services().acl;
  if (const int result = service.acl_valid(list); result != 0) {
    logFailure("acl_valid", result);
    return ACL_VALIDATION_ERR;
  }
  if (const int result = service.acl_set_file(path, acl::kTypeExtended, list); result != 0) {
    const int error = errno;
    logFailure("acl_set_file", result);
    logError("the ACL of " + path +
             " was not set: " + reasonOfRefusal(*services().fileAttributes, path, error));
    return CANNOT_SET_ACL_FILE_ERR;
  }
  return kSuccess;
}

}  // namespace

Status set_acl(const std::string& path, const Array& entries) {
  if (entries.empty() && !hasValidAcl(path)) return kSuccess;
  const OwnedAcl list(services().acl->acl_init(1), kFunction);
  if (!list) {
    logError("acl_init failed");
    return ACL_INIT_ERR;
  }
  if (const End end = appendEntries(list.get(), entries)) return *end;
  return store(path, list.get());
}

}  // namespace paddock
