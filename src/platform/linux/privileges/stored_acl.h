// The extended list that an open object has, as it is stored.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "platform/linux/acl/nt_acl.h"
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

}  // namespace paddock::nt_acl
