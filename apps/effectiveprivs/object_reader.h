// Reads from open objects what their privileges are.
#pragma once

#include <string>

#include "effectiveprivs/evaluation.h"
#include "effectiveprivs/pinned_object.h"
#include "platform/linux/acl/kernel_access.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/principal_sids.h"
#include "platform/linux/acl/samba_accounts.h"
#include "samba/samba_attributes.h"

namespace paddock::effectiveprivs {

class ObjectReader {
 public:
  // `attribute` holds the lists. The caller keeps `sids` alive, which says who a SID is that does
  // not say so itself, and `samba`, which knows the groups that only sessions of its server have.
  ObjectReader(std::string attribute, PrincipalSids& sids, SambaAccountReader& samba)
      : attribute_(std::move(attribute)), sids_(sids), samba_(samba) {}

  // Throws Failure for a list that does not decode, and for what cannot be read.
  ObjectPrivileges read(const PinnedObject& object) const;
  // Owner, group and mode alone.
  static ObjectPrivileges readMode(const PinnedObject& object);
  // Whether an SMB server that heeds the kernel's ACLs enforces the object's list, which is
  // present.
  samba::ListForce listForce(const PinnedObject& object) const;
  // What the kernel has of it.
  static KernelObject readKernel(const PinnedObject& object);

 private:
  void readList(const PinnedObject& object, ObjectPrivileges& privileges) const;
  Subject subjectOf(const nt_acl::Ace& ace) const;
  Subject foreignSubject(const nt_acl::Sid& sid) const;
  // Of the groups S-1-5-32-...
  Subject builtinSubject(const nt_acl::Sid& sid) const;
  // Of the one that is the primary group of Samba's accounts; of kind unknown where it is of none.
  Subject accountsSubject(const nt_acl::Sid& sid) const;

  std::string attribute_;
  PrincipalSids& sids_;
  SambaAccountReader& samba_;
};

}  // namespace paddock::effectiveprivs
