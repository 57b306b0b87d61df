// SIDs that mean the same on every machine: [MS-DTYP] 2.4.2.4.
#pragma once

#include "platform/linux/acl/nt_acl.h"

namespace paddock::nt_acl {

inline constexpr std::uint64_t kWorldAuthority = 1;
inline constexpr std::uint64_t kLocalAuthority = 2;
inline constexpr std::uint64_t kCreatorAuthority = 3;
inline constexpr std::uint64_t kNtAuthority = 5;
// Of the groups that every server has by itself, S-1-5-32-...
inline constexpr std::uint32_t kBuiltinDomain = 32;

inline Sid everyoneSid() { return {1, {0}}; }
inline Sid creatorOwnerSid() { return {3, {0}}; }
inline Sid creatorGroupSid() { return {3, {1}}; }
// Whoever owns the object that the entry stands at.
inline Sid ownerRightsSid() { return {3, {4}}; }
// Whoever has come over a network, as every session of an SMB server has.
inline Sid networkSid() { return {5, {2}}; }
// Whoever has said who he is, and proved it.
inline Sid authenticatedUsersSid() { return {5, {11}}; }

// Whom a client is for having logged on, or how it did: authenticated users, network and the like.
inline bool isOfSession(const Sid& sid) {
  return sid.authority == kNtAuthority && sid.subAuthorities.size() == 1;
}

}  // namespace paddock::nt_acl
