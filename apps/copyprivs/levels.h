// The inheritable entries that come to an object, one level for each folder above it.
#pragma once

#include <memory>

#include "privileges/acl_manipulation.h"

namespace paddock::copyprivs {

// A level, the nearest folder's, with those above it. Never changed, so that any thread may read
// it, and kept as long as an object may still get entries from it.
class Levels {
 public:
  using Pointer = std::shared_ptr<const Levels>;

  // Takes the entries.
  Levels(InheritableACL* entries, Pointer above);
  Levels(const Levels&) = delete;
  Levels& operator=(const Levels&) = delete;
  ~Levels();

  // As SetInheritedPrivs takes it; it is only read there.
  InheritedACLComposite* composite() const { return &level_; }

  // The levels with an empty one in front of them. From the third on another one makes no
  // difference: all that counts is whether a level is the first or the second.
  static Pointer withEmptyBelow(const Pointer& levels);

 private:
  bool beginsWithTwoEmptyOnes() const;

  mutable InheritedACLComposite level_;
  mutable Pointer above_;
};

}  // namespace paddock::copyprivs
