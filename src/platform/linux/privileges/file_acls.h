// Extended ACLs of open objects: the attribute that holds the list, and its projection into the
// kernel's own ACLs. docs/formats/acl.md describes what is stored.
//
// Objects are descriptors, O_PATH ones or others; none of the calls opens what they stand for.
// Errors are errno values; any thread may call. Where /proc is not mounted every call is ENOSYS.
#pragma once

#include <memory>
#include <string>

#include "platform/acl_list.h"
#include "platform/linux/accounts/account_cache.h"
#include "platform/linux/accounts/user_groups.h"
#include "platform/linux/acl/principal_sids.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/privileges/acl_projector.h"
#include "platform/linux/privileges/file_mode.h"
#include "platform/linux/privileges/stored_acl.h"
#include "platform/membership.h"

namespace paddock {

struct FileAclOptions {
  std::string attribute = "security.NTACL";
  // Whether the list is projected; otherwise the kernel's ACLs are left alone.
  bool projection = true;
  // The files watched by the services that are passed, so that each call checks them once; null
  // when they watch none. Must outlive this object.
  const AccountFiles* accountFiles = nullptr;
};

class FileAcls {
 public:
  // The arguments must outlive this object.
  FileAcls(FileAclOptions options, PrincipalSids& sids, Membership& membership, UserGroups& groups,
           const ExtendedAttributes& attributes = linuxExtendedAttributes());

  // The object's list; ENOENT when it has none, also where the file system keeps none. A descriptor
  // without a list is the complete list that means the same to an SMB server: everyone is allowed
  // everything, or there is no entry, as its control word has it. So it is seen, can be removed,
  // and is stored in that form when it is written. What does not decode is a list that acl_valid
  // refuses.
  int readFrom(int object, std::unique_ptr<acl::List>& list) const;

  // Replaces the object's list and its projection, both or neither. A list that was read keeps its
  // completeness; one built afresh takes that of the list that it replaces, and is not complete
  // where there is none. One without entries is stored when it was read and is complete, else it
  // removes the attribute. Foreign SIDs of the entries are recorded (see principal_sids.h). EINVAL
  // for a list that acl_valid refuses, and for an entry whose SID was
  // forgotten; E2BIG for one that the format cannot hold; EOPNOTSUPP where the file system keeps
  // none; ENOSPC, EROFS, EPERM.
  int writeTo(int object, const acl::List& list) const;

  // Makes the list that the object has complete, or gives it a complete one without entries where
  // it has none; with `emptied` its entries go, too. The others keep the principals that they are
  // stored with. What is stored is read once more right before it is written: EAGAIN when it is not
  // what it was, and nothing is changed then. EINVAL for a list that does not decode; otherwise as
  // writeTo.
  int makeComplete(int object, bool emptied) const;

  // To be called when the object's owner, group or mode was changed: brings the owner and group of
  // its list, the tail and the projection up to date. A complete list gets no tail; an object
  // without a list, or with one that does not decode, is left alone.
  int refresh(int object) const;

  // The same for an object with a known status. The status is trusted, and attributes are read by
  // its descriptor only; no SID is recorded.
  int readFrom(const nt_acl::OpenObject& object, std::unique_ptr<acl::List>& list) const;
  int writeTo(const nt_acl::OpenObject& object, const acl::List& list) const;
  int refresh(const nt_acl::OpenObject& object) const;

 private:
  int store(const nt_acl::OpenObject& object, const nt_acl::StoredAcl& stored,
            const nt_acl::SplitList& list, bool unlessChanged = false) const;
  int requireUnchanged(const nt_acl::OpenObject& object, const nt_acl::StoredAcl& stored,
                       const AccessAcl& access) const;
  int clear(const nt_acl::OpenObject& object, const nt_acl::StoredAcl& stored) const;

  const FileAclOptions options_;
  PrincipalSids& sids_;
  const ExtendedAttributes& attributes_;
  const AclProjector projector_;
};

}  // namespace paddock
