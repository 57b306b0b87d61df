#include "privileges/acl_manipulation.h"

namespace paddock {

namespace {

struct ModeClass {
  std::uint32_t what;
  mode_t all;
  mode_t readWrite;
  mode_t execute;
};

constexpr std::array<ModeClass, 3> kClasses = {{{kSetOwnerPermissions, 0700, 0600, 0100},
                                                {kSetGroupPermissions, 0070, 0060, 0010},
                                                {kSetOtherPermissions, 0007, 0006, 0001}}};

}  // namespace

mode_t inherited_mode(mode_t current, const PrivsToSet& privs, int kind) {
  const bool isFolder = kind == kDirectoryKind;
  // Deliberate: set-user-id, set-group-id and sticky bits are not among what is kept.
  mode_t mode = isFolder ? 0 : current & 0111U;
  for (const ModeClass& one : kClasses) {
    const bool isSet = (privs.what & one.what) != 0;
    mode |= isSet ? privs.mode & one.readWrite : current & one.all;
    // Who may read or write a folder may search it, too.
    if (isFolder && isSet && (mode & one.readWrite) != 0) mode |= one.execute;
  }
  return mode;
}

}  // namespace paddock
