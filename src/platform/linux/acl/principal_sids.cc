#include "platform/linux/acl/principal_sids.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/guid.h"
#include "base/principal.h"
#include "platform/linux/acl/sid_forms.h"

namespace paddock {

namespace {

// A well-known SID need not be recorded.
std::optional<nt_acl::Sid> wellKnownSid(const Guid& guid) {
  const std::string text = guidText(guid);
  const WellKnownPrincipal* known =
      wellKnownPrincipal([&](const WellKnownPrincipal& one) { return one.guid == text; });
  return known != nullptr ? nt_acl::parseSid(known->sid) : std::nullopt;
}

bool mayBeAPrincipal(const nt_acl::Sid& sid) {
  return sid.authority != nt_acl::kWorldAuthority && sid.authority != nt_acl::kCreatorAuthority &&
         sid.authority != nt_acl::kOwnAuthority && !nt_acl::isOfSession(sid);
}

}  // namespace

PrincipalSids::PrincipalSids(Membership& membership, std::string rememberedPath,
                             std::unique_ptr<SidResolver> resolver)
    : membership_(membership),
      remembered_(rememberedPath.empty()
                      ? nullptr
                      : std::make_unique<RememberedSids>(std::move(rememberedPath))),
      resolver_(std::move(resolver)) {}

int PrincipalSids::sidFor(const Guid& guid, nt_acl::Sid& sid) {
  Principal principal;
  const int error = membership_.guidToId(guid, principal.id, principal.type);
  if (error == 0) {
    sid = nt_acl::unixSid(principal);
    return 0;
  }
  if (nt_acl::isForeignGuid(guid)) {
    // It is recorded as that SID, also while it cannot be resolved.
    const int forgotten = foreignSid(guid, sid);
    return forgotten == 0 || error == ENOENT ? forgotten : error;
  }
  if (error != ENOENT) return error;
  sid = nt_acl::guidSid(guid);
  return 0;
}

int PrincipalSids::guidFor(const nt_acl::Sid& sid, Guid& guid) {
  if (const auto principal = nt_acl::unixPrincipal(sid)) {
    guid = guidOf(*principal);
    return 0;
  }
  if (const auto held = nt_acl::sidGuid(sid)) {
    guid = *held;
    return 0;
  }
  Principal principal;
  if (!isPrincipal(sid, principal)) return foreignGuid(sid, guid);
  guid = guidOf(principal);
  return 0;
}

void PrincipalSids::expect(const std::vector<nt_acl::Sid>& sids) {
  std::vector<Principal> principals;
  for (const nt_acl::Sid& sid : sids) {
    const auto principal = nt_acl::unixPrincipal(sid);
    const bool isNew = principal && std::find(principals.begin(), principals.end(), *principal) ==
                                        principals.end();
    if (isNew) principals.push_back(*principal);
  }
  // One alone is as well asked for when it is needed.
  if (principals.size() > 1) membership_.toGuids(principals);
}

Guid PrincipalSids::guidOf(const Principal& principal) {
  Guid guid;
  const int error = principal.type == PrincipalType::user
                        ? membership_.uidToGuid(principal.id, guid)
                        : membership_.gidToGuid(principal.id, guid);
  return error == 0 ? guid : computedGuid(principal);
}

bool PrincipalSids::isPrincipal(const nt_acl::Sid& sid, Principal& principal) {
  return resolver_ && mayBeAPrincipal(sid) && resolver_->principalOf(sid, principal) == 0;
}

int PrincipalSids::foreignSid(const Guid& guid, nt_acl::Sid& sid) {
  if (inMemory(guid, sid)) return 0;
  if (const auto known = wellKnownSid(guid)) {
    sid = *known;
    return 0;
  }
  if (!remembered_) return ENOENT;
  const int error = remembered_->find(guid, sid);
  if (error == 0) keep(guid, sid);
  return error;
}

int PrincipalSids::foreignGuid(const nt_acl::Sid& sid, Guid& guid) {
  const Guid made = nt_acl::foreignGuid(sid);
  nt_acl::Sid known;
  if (inMemory(made, known)) {
    if (known != sid) return EEXIST;
  } else {
    if (remembered_ && remembered_->find(made, known) == 0 && known != sid) return EEXIST;
    keep(made, sid);
  }
  guid = made;
  return 0;
}

void PrincipalSids::record(const std::vector<Guid>& guids) {
  if (!remembered_) return;
  for (const Guid& guid : guids) {
    nt_acl::Sid sid;
    const bool isForeign = nt_acl::isForeignGuid(guid) && !wellKnownSid(guid);
    if (isForeign && inMemory(guid, sid)) (void)remembered_->remember(sid);
  }
}

bool PrincipalSids::inMemory(const Guid& guid, nt_acl::Sid& sid) {
  const MutexLock lock(mutex_);
  for (const Foreign* all : {&foreign_, &olderForeign_}) {
    const auto found = all->find(guid);
    if (found == all->end()) continue;
    sid = found->second;
    return true;
  }
  return false;
}

void PrincipalSids::keep(const Guid& guid, const nt_acl::Sid& sid) {
  const MutexLock lock(mutex_);
  if (foreign_.size() >= kCapacity) olderForeign_ = std::exchange(foreign_, {});
  foreign_.emplace(guid, sid);
}

}  // namespace paddock
