// Several extended attributes of one object, changed together or not at all.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/files/file_object.h"

namespace paddock {

// One attribute's values; absent: the object does not have the attribute.
struct XattrChange {
  std::string name;
  std::optional<std::string> before;
  std::optional<std::string> after;
  // Where the file system does not take the attribute, the change is left out.
  bool onlyWhereSupported = false;
};

// Makes the changes in their order, each in one step; what is to stay as it is is not written. When
// one fails, those before it are undone and its errno is returned.
int applyChanges(const ExtendedAttributes& attributes, int object,
                 const std::vector<XattrChange>& changes);

}  // namespace paddock
