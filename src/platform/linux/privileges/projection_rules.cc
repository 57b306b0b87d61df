#include "platform/linux/privileges/projection_rules.h"

#include <cerrno>

#include "platform/linux/acl/access_mask.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/acl/well_known_sids.h"

namespace paddock::nt_acl {

namespace {

using projection::Subject;

// Means "leave it" to the kernel.
constexpr std::uint32_t kUndefinedId = 0xFFFFFFFF;
constexpr std::uint64_t kCreatorAuthority = 3;

posix_acl::Bits bitsOf(std::uint32_t mask) {
  unsigned bits = 0;
  if ((mask & kReadDataMask) != 0) bits |= posix_acl::kRead;
  if ((mask & kWriteDataMask) != 0) bits |= posix_acl::kWrite;
  if ((mask & kExecuteMask) != 0) bits |= posix_acl::kExecute;
  return static_cast<posix_acl::Bits>(bits);
}

Subject subjectOf(const Principal& principal) {
  if (principal.id == kUndefinedId) return {};
  const bool isUser = principal.type == PrincipalType::user;
  return {isUser ? Subject::Kind::user : Subject::Kind::group, principal.id};
}

int findSubject(PrincipalSids& sids, Membership& membership, const Sid& sid, Subject& subject) {
  subject = {};
  if (const auto principal = unixPrincipal(sid)) {
    subject = subjectOf(*principal);
    return 0;
  }
  if (sid == everyoneSid() || sid == authenticatedUsersSid()) {
    subject.kind = Subject::Kind::everyone;
    return 0;
  }
  if (sid.authority == kCreatorAuthority) return 0;
  Guid guid;
  if (const int error = sids.guidFor(sid, guid); error != 0) return error;
  Principal principal;
  const int error = membership.guidToId(guid, principal.id, principal.type);
  if (error == 0) subject = subjectOf(principal);
  return error == ENOENT ? 0 : error;
}

}  // namespace

int readRules(PrincipalSids& sids, Membership& membership, const std::vector<Ace>& aces,
              std::vector<projection::Rule>& rules) {
  rules.clear();
  rules.reserve(aces.size());
  for (const Ace& ace : aces) {
    projection::Rule rule{ace.type == kAllowed, {}, bitsOf(ace.mask), flagsOf(ace.flags)};
    if (ace.foreign.empty()) {
      const int error = findSubject(sids, membership, ace.sid, rule.subject);
      if (error != 0) return error;
    }
    rules.push_back(rule);
  }
  return 0;
}

}  // namespace paddock::nt_acl
