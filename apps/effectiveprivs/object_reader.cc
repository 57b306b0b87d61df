#include "effectiveprivs/object_reader.h"

#include <cerrno>
#include <utility>

#include "effectiveprivs/effectiveprivs_failure.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/acl/ace_entry.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/privileges/file_mode.h"
#include "platform/linux/privileges/stored_acl.h"

namespace paddock::effectiveprivs {

namespace {

using Kind = Subject::Kind;

// The creator SIDs, and logon types that no session of a user has.
bool isNobodys(const nt_acl::Sid& sid) {
  return sid.authority == nt_acl::kCreatorAuthority || sid.authority == nt_acl::kLocalAuthority ||
         nt_acl::isOfSession(sid);
}

bool isBuiltin(const nt_acl::Sid& sid) {
  return sid.authority == nt_acl::kNtAuthority && sid.subAuthorities.size() > 1 &&
         sid.subAuthorities[0] == nt_acl::kBuiltinDomain;
}

}  // namespace

ObjectPrivileges ObjectReader::read(const PinnedObject& object) const {
  ObjectPrivileges privileges = readMode(object);
  readList(object, privileges);
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

samba::ListForce ObjectReader::listForce(const PinnedObject& object) const {
  const auto valueOf = [&object](const std::string& name) {
    std::optional<std::string> value;
    const int error = nt_acl::readValue(linuxExtendedAttributes(), object.number(), name, value);
    if (error != 0 && error != EOPNOTSUPP) throw failureOf("read the ACL of", object.path(), error);
    return value;
  };
  const auto kernelHash = [&] {
    const struct stat& status = object.status();
    samba::KernelAcls acls{status.st_uid, status.st_gid, status.st_mode, {}, {}};
    acls.access = valueOf(posix_acl::kAccessAttribute);
    if (object.isFolder()) acls.defaultAccess = valueOf(posix_acl::kDefaultAttribute);
    return samba::kernelAclHashOf(acls);
  };
  return samba::listForce(valueOf(attribute_).value_or(""), kernelHash)
      .value_or(samba::ListForce::unknown);
}

void ObjectReader::readList(const PinnedObject& object, ObjectPrivileges& privileges) const {
  nt_acl::StoredAcl stored;
  const int error = nt_acl::readStoredAcl(linuxExtendedAttributes(), attribute_,
                                          {object.number(), object.status()}, stored);
  if (error != 0 && error != EOPNOTSUPP) throw failureOf("read the ACL of", object.path(), error);
  if (stored.isUndecodable())
    throw Failure("the ACL of " + object.path() + " is damaged: its attribute " + attribute_ +
                  " does not decode");
  if (!stored.list) return;
  const nt_acl::TailSource present{privileges.uid, privileges.gid, privileges.classes,
                                   privileges.isFolder};
  if (stored.list->tail && stored.list->tail != present) privileges.staleTail = stored.list->tail;
  RuleList& list = privileges.list.emplace();
  list.complete = stored.list->complete;
  list.rules.reserve(stored.list->entries.size());
  for (const nt_acl::Ace& ace : stored.list->entries) {
    const acl::Permission permissions =
        ace.foreign.empty() ? nt_acl::permissionsOf(ace.mask) : acl::Permission{0};
    list.rules.push_back({ace.type == nt_acl::kAllowed, subjectOf(ace), permissions,
                          (ace.flags & nt_acl::kInheritOnly) != 0});
  }
}

Subject ObjectReader::subjectOf(const nt_acl::Ace& ace) const {
  if (!ace.foreign.empty()) return {};
  if (const auto principal = nt_acl::unixPrincipal(ace.sid)) {
    const bool isUser = principal->type == PrincipalType::user;
    return {.kind = isUser ? Kind::user : Kind::group, .id = principal->id};
  }
  if (const auto guid = nt_acl::sidGuid(ace.sid)) return {.kind = Kind::guid, .guid = *guid};
  if (ace.sid == nt_acl::everyoneSid()) return {.kind = Kind::everyone};
  if (ace.sid == nt_acl::networkSid()) return {.kind = Kind::network};
  if (ace.sid == nt_acl::authenticatedUsersSid()) return {.kind = Kind::authenticated};
  if (ace.sid == nt_acl::ownerRightsSid()) return {.kind = Kind::ownerRights};
  if (isNobodys(ace.sid)) return {.sid = nt_acl::sidText(ace.sid)};
  return isBuiltin(ace.sid) ? builtinSubject(ace.sid) : foreignSubject(ace.sid);
}

Subject ObjectReader::foreignSubject(const nt_acl::Sid& sid) const {
  const std::string text = nt_acl::sidText(sid);
  Guid guid;
  if (const int error = sids_.guidFor(sid, guid); error != 0)
    throw failureOf("find out who is", text, error);
  if (nt_acl::isForeignGuid(guid)) return accountsSubject(sid);
  return {.kind = Kind::guid, .guid = guid, .sid = text};
}

// Membership in such a group is defined by Samba alone, whatever gid maps to it.
Subject ObjectReader::builtinSubject(const nt_acl::Sid& sid) const {
  std::string why;
  const auto accounts = samba_.read(why);
  const bool isOfNobody = accounts && accounts->findGroup(sid) == nullptr;
  return {.kind = isOfNobody ? Kind::nobody : Kind::unknown, .sid = nt_acl::sidText(sid)};
}

Subject ObjectReader::accountsSubject(const nt_acl::Sid& sid) const {
  Subject subject{.kind = Kind::unknown, .sid = nt_acl::sidText(sid)};
  std::string why;
  const auto accounts = samba_.read(why);
  if (!accounts) return subject;
  std::set<std::uint32_t> uids;
  for (const SambaAccount* account : accounts->withPrimaryGroup(sid))
    if (const auto user = nssUser(account->name)) uids.insert(user->uid);
  if (uids.empty()) return subject;
  subject.kind = Kind::accounts;
  subject.uids = std::make_shared<const std::set<std::uint32_t>>(std::move(uids));
  return subject;
}

}  // namespace paddock::effectiveprivs
