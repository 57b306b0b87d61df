// Keeps the kernel's ACLs of an object as its extended list has them.
#pragma once

#include <vector>

#include "platform/linux/accounts/user_groups.h"
#include "platform/linux/acl/principal_sids.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/privileges/file_mode.h"
#include "platform/linux/privileges/mode_tail.h"
#include "platform/linux/privileges/posix_projection.h"
#include "platform/linux/privileges/stored_acl.h"
#include "platform/membership.h"

namespace paddock {

class AclProjector {
 public:
  // The arguments must outlive this object.
  AclProjector(PrincipalSids& sids, Membership& membership, UserGroups& groups,
               const ExtendedAttributes& attributes)
      : sids_(sids), membership_(membership), groups_(groups), attributes_(attributes) {}

  // Appends the changes that make the kernel's ACLs a projection of the list, over the object's
  // mode; none where the file system takes no such ACLs. `present` is its access ACL. 0 or an
  // errno.
  int project(const nt_acl::OpenObject& object, const AccessAcl& present,
              const nt_acl::SplitList& list, std::vector<XattrChange>& changes) const;

  // Appends those that leave nothing but the mode.
  int clear(const nt_acl::OpenObject& object, const AccessAcl& present,
            std::vector<XattrChange>& changes) const;

 private:
  int change(const nt_acl::OpenObject& object, const AccessAcl& present,
             const posix_acl::Acl& access, const posix_acl::Acl& inherited,
             std::vector<XattrChange>& changes) const;

  PrincipalSids& sids_;
  Membership& membership_;
  UserGroups& groups_;
  const ExtendedAttributes& attributes_;
};

}  // namespace paddock
