// Accounts, file attributes and extended ACLs of a Linux server combined, for programs that read or
// change file privileges.
#pragma once

#include <memory>
#include <string>

#include "platform/linux/accounts/cached_accounts.h"
#include "platform/linux/accounts/linux_accounts.h"
#include "platform/linux/accounts/user_groups.h"
#include "platform/linux/acl/principal_sids.h"
#include "platform/linux/acl/sid_resolver.h"
#include "platform/linux/privileges/file_acls.h"
#include "platform/linux/privileges/linux_acl.h"
#include "platform/linux/privileges/linux_file_attributes.h"
#include "platform/linux/process/linux_machine_information.h"

namespace paddock {

struct FilePrivilegesOptions {
  std::string attribute = "security.NTACL";
  bool projection = true;
  // The database of "/Local": cached accounts are invalidated when it changes.
  std::string databasePath = "/var/lib/paddock/directory.sqlite";
  std::string rememberedSidsPath = "/var/lib/paddock/foreign-sids.sqlite";
};

class FilePrivileges {
 public:
  // Directory and membership must outlive this object. Without a resolver no SID is resolved.
  FilePrivileges(const FilePrivilegesOptions& options, DirectoryService& directory,
                 Membership& membership, std::unique_ptr<SidResolver> resolver);

  Accounts& accounts() { return accounts_; }
  FileAttributeService& fileAttributes() { return fileAttributes_; }
  acl::AclService& acl() { return acl_; }
  // The same by descriptor.
  const FileAcls& fileAcls() const { return fileAcls_; }
  // The same over other attributes. They, and this object, must outlive the result.
  FileAcls fileAclsOver(const ExtendedAttributes& attributes) {
    return {options_, sids_, knownMembership_, knownGroups_, attributes};
  }

 private:
  LinuxClock clock_;
  const AccountFiles files_;
  LinuxAccounts accounts_;
  CachedAccounts knownAccounts_{accounts_, files_};
  CachedMembership knownMembership_;
  PrincipalSids sids_;
  NssUserGroups groups_;
  CachedUserGroups knownGroups_{groups_, files_};
  const FileAclOptions options_;
  FileAcls fileAcls_;
  LinuxAcl acl_{fileAcls_};
  LinuxFileAttributes fileAttributes_{knownAccounts_, fileAcls_};
};

}  // namespace paddock
