// The stored form of an open object's extended list.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/acl_list.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/principal_sids.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/privileges/mode_tail.h"

namespace paddock::nt_acl {

// A descriptor and what stat(2) says of it.
struct OpenObject {
  int number = -1;
  struct stat status {};

  bool isFolder() const { return S_ISDIR(status.st_mode); }
  // A link itself, which has no list: its target may have one.
  bool isLink() const { return S_ISLNK(status.st_mode); }
};

// 0 or an errno.
int lookAt(int number, OpenObject& object);

// What the attribute holds.
struct StoredAcl {
  std::optional<std::string> value;      // absent when the object does not have the attribute
  std::optional<Descriptor> descriptor;  // absent when there is no value, or it does not decode
  // Absent when there is no descriptor. Of one without a list, the complete list that says the
  // same.
  std::optional<SplitList> list;

  bool isUndecodable() const { return value && !descriptor; }
};

// 0 or an errno: EOPNOTSUPP where the file system keeps no such attributes. A value whose list, its
// tail left out, is longer than a list may be counts as one that does not decode.
int readStoredAcl(const ExtendedAttributes& attributes, const std::string& name,
                  const OpenObject& object, StoredAcl& stored);

// An attribute's value, absent when the object does not have the attribute. 0 or an errno.
int readValue(const ExtendedAttributes& attributes, int object, const std::string& name,
              std::optional<std::string>& value);

// The entries of a list as acl.h has them, to and from those of a stored list.

// Appends the entries to `list`. 0, or an errno when a principal cannot be found out.
int readEntries(PrincipalSids& sids, const std::vector<Ace>& aces, acl::List& list);

// The stored entries of `list`, in its order. An entry unchanged since it was read is written back
// unmodified, except for the SID of a principal with a uid or gid; so is a new one that is
// equivalent to an entry of `replaced`, the list that this one replaces. Precondition: acl_valid
// accepts the list. Returns 0, or an errno: EINVAL for an unrecorded foreign SID and for a foreign
// entry that was not read here, or that of the membership service.
int writeEntries(PrincipalSids& sids, const acl::List& list, const std::vector<Ace>& replaced,
                 std::vector<Ace>& aces);

}  // namespace paddock::nt_acl
