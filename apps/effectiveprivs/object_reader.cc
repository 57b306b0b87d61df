#include "effectiveprivs/object_reader.h"

#include <cerrno>
#include <utility>

#include "effectiveprivs/failure.h"
#include "platform/linux/access_mask.h"
#include "platform/linux/file_mode.h"
#include "platform/linux/sid_forms.h"
#include "platform/linux/sid_text.h"
#include "platform/linux/stored_acl.h"
#include "platform/linux/well_known_sids.h"

namespace paddock::effectiveprivs {

namespace {

using Kind = Subject::Kind;

constexpr std::uint64_t kCreatorAuthority = 3;

}  // namespace

ObjectPrivileges ObjectReader::read(const PinnedObject& object) const {
  ObjectPrivileges privileges = readMode(object);
  privileges.list = readList(object);
  return privileges;
}

ObjectPrivileges ObjectReader::readMode(const PinnedObject& object) {
  const struct stat& status = object.status();
  mode_t mode = 0;
  const int error =
      paddock::readMode(linuxExtendedAttributes(), object.number(), status.st_mode, mode);
  if (error != 0) throw failureOf("read the mode of", object.path(), error);
  return {status.st_uid,
          status.st_gid,
          posix_acl::classesOf(mode),
          object.isFolder(),
          (status.st_mode & S_ISVTX) != 0,
          std::nullopt};
}

KernelObject ObjectReader::readKernel(const PinnedObject& object) {
  const struct stat& status = object.status();
  AccessAcl acl;
  const int error = readAccessAcl(linuxExtendedAttributes(), object.number(), acl);
  if (error != 0) throw failureOf("read the kernel's ACL of", object.path(), error);
  return {status.st_uid, status.st_gid, status.st_mode,
          acl.value ? posix_acl::decode(*acl.value) : std::nullopt};
}

std::optional<RuleList> ObjectReader::readList(const PinnedObject& object) const {
  nt_acl::StoredAcl stored;
  const int error = nt_acl::readStoredAcl(linuxExtendedAttributes(), attribute_,
                                          {object.number(), object.status()}, stored);
  if (error != 0 && error != EOPNOTSUPP) throw failureOf("read the ACL of", object.path(), error);
  if (stored.isUndecodable())
    throw Failure("the ACL of " + object.path() + " is damaged: its attribute " + attribute_ +
                  " does not decode");
  if (!stored.list) return std::nullopt;
  RuleList list;
  list.complete = stored.list->complete;
  list.rules.reserve(stored.list->entries.size());
  for (const nt_acl::Ace& ace : stored.list->entries) {
    const acl::Permission permissions =
        ace.foreign.empty() ? nt_acl::permissionsOf(ace.mask) : acl::Permission{0};
    list.rules.push_back({ace.type == nt_acl::kAllowed, subjectOf(ace), permissions,
                          (ace.flags & nt_acl::kInheritOnly) != 0});
  }
  return list;
}

Subject ObjectReader::subjectOf(const nt_acl::Ace& ace) const {
  if (!ace.foreign.empty()) return {};
  if (const auto principal = nt_acl::unixPrincipal(ace.sid)) {
    const bool isUser = principal->type == PrincipalType::user;
    return {isUser ? Kind::user : Kind::group, principal->id, {}, {}};
  }
  if (ace.sid == nt_acl::everyoneSid()) return {Kind::everyone, 0, {}, {}};
  if (ace.sid == nt_acl::authenticatedUsersSid()) return {Kind::authenticated, 0, {}, {}};
  if (ace.sid == nt_acl::ownerRightsSid()) return {Kind::ownerRights, 0, {}, {}};
  const std::string text = nt_acl::sidText(ace.sid);
  if (ace.sid.authority == kCreatorAuthority) return {Kind::nobody, 0, {}, text};
  Guid guid;
  if (const int error = sids_.guidFor(ace.sid, guid); error != 0)
    throw failureOf("find out who is", text, error);
  return {Kind::guid, 0, guid, nt_acl::sidGuid(ace.sid) ? std::string() : text};
}

}  // namespace paddock::effectiveprivs
