#include "platform/linux/privileges/file_acls.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/privileges/stored_acl.h"

namespace paddock {

using nt_acl::Descriptor;
using nt_acl::OpenObject;
using nt_acl::SplitList;
using nt_acl::StoredAcl;

namespace {

bool isWellFormed(const acl::List& list) {
  return !list.undecodable && list.entries.size() <= acl::kMaximumEntries &&
         std::all_of(list.entries.begin(), list.entries.end(), [](const auto& entry) {
           return entry->tag != acl::kUndefinedTag && entry->qualifier.has_value();
         });
}

void setOwners(Descriptor& descriptor, const OpenObject& object) {
  descriptor.owner = nt_acl::unixSid({PrincipalType::user, object.status.st_uid});
  descriptor.group = nt_acl::unixSid({PrincipalType::group, object.status.st_gid});
}

// The value with the list and, unless it is complete, its tail.
std::optional<std::string> valueOf(const OpenObject& object, const SplitList& list,
                                   const posix_acl::Classes& classes) {
  Descriptor descriptor;
  setOwners(descriptor, object);
  descriptor.list = list.complete
                        ? list.entries
                        : withTail(list.entries, {object.status.st_uid, object.status.st_gid,
                                                  classes, object.isFolder()});
  return nt_acl::encode(descriptor);
}

bool completenessOf(const acl::List& list, const StoredAcl& replaced) {
  return list.complete.value_or(replaced.list && replaced.list->complete);
}

}  // namespace

FileAcls::FileAcls(FileAclOptions options, PrincipalSids& sids, Membership& membership,
                   UserGroups& groups, const ExtendedAttributes& attributes)
    : options_(std::move(options)),
      sids_(sids),
      attributes_(attributes),
      projector_(sids, membership, groups, attributes) {}

int FileAcls::readFrom(int number, std::unique_ptr<acl::List>& list) const {
  list.reset();
  OpenObject object;
  const int error = lookAt(number, object);
  return error != 0 ? error : readFrom(object, list);
}

int FileAcls::writeTo(int number, const acl::List& list) const {
  if (!isWellFormed(list)) return EINVAL;
  OpenObject object;
  int error = lookAt(number, object);
  if (error == 0) error = writeTo(object, list);
  if (error != 0) return error;
  std::vector<Guid> written;
  for (const auto& entry : list.entries) written.push_back(*entry->qualifier);
  sids_.record(written);
  return 0;
}

int FileAcls::refresh(int number) const {
  OpenObject object;
  const int error = lookAt(number, object);
  return error != 0 ? error : refresh(object);
}

int FileAcls::readFrom(const OpenObject& object, std::unique_ptr<acl::List>& list) const {
  const AccountFiles::Moment moment(options_.accountFiles);
  list.reset();
  if (object.isLink()) return ENOENT;
  StoredAcl stored;
  const int error = readStoredAcl(attributes_, options_.attribute, object, stored);
  if (error == EOPNOTSUPP) return ENOENT;
  if (error != 0) return error;
  if (!stored.list && !stored.isUndecodable()) return ENOENT;
  auto found = std::make_unique<acl::List>();
  found->undecodable = stored.isUndecodable();
  if (stored.list) {
    found->complete = stored.list->complete;
    const int failed = readEntries(sids_, stored.list->entries, *found);
    if (failed != 0) return failed;
  }
  list = std::move(found);
  return 0;
}

int FileAcls::writeTo(const OpenObject& object, const acl::List& list) const {
  const AccountFiles::Moment moment(options_.accountFiles);
  if (!isWellFormed(list)) return EINVAL;
  if (object.isLink()) return EOPNOTSUPP;
  StoredAcl stored;
  int error = readStoredAcl(attributes_, options_.attribute, object, stored);
  if (error != 0) return error;
  SplitList written;
  written.complete = completenessOf(list, stored);
  if (list.entries.empty() && !list.complete.value_or(false)) return clear(object, stored);
  const std::vector<nt_acl::Ace> none;
  error = writeEntries(sids_, list, stored.list ? stored.list->entries : none, written.entries);
  return error != 0 ? error : store(object, stored, written);
}

int FileAcls::refresh(const OpenObject& object) const {
  const AccountFiles::Moment moment(options_.accountFiles);
  if (object.isLink()) return 0;
  StoredAcl stored;
  const int error = readStoredAcl(attributes_, options_.attribute, object, stored);
  if (error == EOPNOTSUPP) return 0;
  if (error != 0) return error;
  return stored.list ? store(object, stored, *stored.list) : 0;
}

int FileAcls::makeComplete(int number, bool emptied) const {
  const AccountFiles::Moment moment(options_.accountFiles);
  OpenObject object;
  StoredAcl stored;
  int error = lookAt(number, object);
  if (error == 0 && object.isLink()) error = EOPNOTSUPP;
  if (error == 0) error = readStoredAcl(attributes_, options_.attribute, object, stored);
  if (error != 0) return error;
  if (stored.isUndecodable()) return EINVAL;
  SplitList list;
  if (stored.list && !emptied) list.entries = stored.list->entries;
  list.complete = true;
  return store(object, stored, list, true);
}

int FileAcls::requireUnchanged(const OpenObject& object, const StoredAcl& stored,
                               const AccessAcl& access) const {
  OpenObject present;
  std::optional<std::string> value;
  AccessAcl presentAccess;
  int error = lookAt(object.number, present);
  if (error == 0) error = nt_acl::readValue(attributes_, object.number, options_.attribute, value);
  if (error == 0) error = readAccessAcl(attributes_, object.number, presentAccess);
  if (error != 0) return error;
  const bool isSame = value == stored.value && presentAccess.value == access.value &&
                      present.status.st_mode == object.status.st_mode &&
                      present.status.st_uid == object.status.st_uid &&
                      present.status.st_gid == object.status.st_gid;
  return isSame ? 0 : EAGAIN;
}

int FileAcls::store(const OpenObject& object, const StoredAcl& stored, const SplitList& list,
                    bool unlessChanged) const {
  AccessAcl access;
  if (const int error = readAccessAcl(attributes_, object.number, access); error != 0) return error;
  const mode_t mode = modeWithout(access, object.status.st_mode);
  auto value = valueOf(object, list, posix_acl::classesOf(mode));
  if (!value) return E2BIG;
  std::vector<XattrChange> changes{{options_.attribute, stored.value, std::move(value)}};
  if (options_.projection) {
    const int error = projector_.project(object, access, list, changes);
    if (error != 0) return error;
  }
  if (unlessChanged) {
    if (const int error = requireUnchanged(object, stored, access); error != 0) return error;
  }
  return applyChanges(attributes_, object.number, changes);
}

int FileAcls::clear(const OpenObject& object, const StoredAcl& stored) const {
  // A POSIX ACL that stands without a list is no projection.
  if (!stored.value) return 0;
  AccessAcl access;
  if (const int error = readAccessAcl(attributes_, object.number, access); error != 0) return error;
  std::vector<XattrChange> changes;
  if (options_.projection) {
    const int error = projector_.clear(object, access, changes);
    if (error != 0) return error;
  }
  // Last: a kernel ACL without a list is attributed to another program.
  changes.push_back({options_.attribute, stored.value, std::nullopt});
  return applyChanges(attributes_, object.number, changes);
}

}  // namespace paddock
