#include "platform/linux/files/xattr_changes.h"

#include <cerrno>

namespace paddock {

namespace {

int put(const ExtendedAttributes& attributes, int object, const std::string& name,
        const std::optional<std::string>& value) {
  if (value) return attributes.set(object, name, *value);
  const int error = attributes.remove(object, name);
  return error == ENODATA ? 0 : error;
}

// Puts the old values of the first `count` changes back. An old value that is larger may find room
// only when another one has become smaller again, hence the second round.
void undo(const ExtendedAttributes& attributes, int object, const std::vector<XattrChange>& changes,
          std::size_t count) {
  for (int round = 0; round < 2; ++round) {
    for (std::size_t i = count; i > 0; --i) {
      const XattrChange& change = changes[i - 1];
      if (change.before == change.after) continue;
      put(attributes, object, change.name, change.before);
    }
  }
}

}  // namespace

int applyChanges(const ExtendedAttributes& attributes, int object,
                 const std::vector<XattrChange>& changes) {
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (changes[i].before == changes[i].after) continue;
    const int error = put(attributes, object, changes[i].name, changes[i].after);
    if (error == 0 || (error == EOPNOTSUPP && changes[i].onlyWhereSupported)) continue;
    undo(attributes, object, changes, i);
    return error;
  }
  return 0;
}

}  // namespace paddock
