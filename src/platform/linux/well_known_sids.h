// SIDs that mean the same on every machine: [MS-DTYP] 2.4.2.4.
#pragma once

#include "platform/linux/nt_acl.h"

namespace paddock::nt_acl {

inline Sid everyoneSid() { return {1, {0}}; }
inline Sid creatorOwnerSid() { return {3, {0}}; }
inline Sid creatorGroupSid() { return {3, {1}}; }
// Whoever owns the object that the entry stands at.
inline Sid ownerRightsSid() { return {3, {4}}; }
// Whoever has said who he is, and proved it.
inline Sid authenticatedUsersSid() { return {5, {11}}; }

}  // namespace paddock::nt_acl
