// Reads from open objects what their privileges are.
#pragma once

#include <string>

#include "effectiveprivs/evaluation.h"
#include "effectiveprivs/kernel_access.h"
#include "effectiveprivs/pinned_object.h"
#include "platform/linux/nt_acl.h"
#include "platform/linux/principal_sids.h"

namespace paddock::effectiveprivs {

class ObjectReader {
 public:
  // `attribute` holds the lists. The caller keeps `sids` alive, which says who a SID is that does
  // not say so itself.
  ObjectReader(std::string attribute, PrincipalSids& sids)
      : attribute_(std::move(attribute)), sids_(sids) {}

  // Throws Failure for a list that does not decode, and for what cannot be read.
  ObjectPrivileges read(const PinnedObject& object) const;
  // Owner, group and mode alone.
  static ObjectPrivileges readMode(const PinnedObject& object);
  // What the kernel has of it.
  static KernelObject readKernel(const PinnedObject& object);

 private:
  std::optional<RuleList> readList(const PinnedObject& object) const;
  Subject subjectOf(const nt_acl::Ace& ace) const;

  std::string attribute_;
  PrincipalSids& sids_;
};

}  // namespace paddock::effectiveprivs
