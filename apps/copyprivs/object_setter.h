// Sets the privileges of one object after the other.
#pragma once

#include <string>

#include "copyprivs/change_steps.h"
#include "copyprivs/planner.h"
#include "platform/linux/privileges/object_status.h"

namespace paddock::copyprivs {

// What is propagated down a tree.
struct Propagation {
  PrivsToSet privs{};      // without a composite
  std::string attribute;   // the one that holds extended ACLs
  Levels::Pointer levels;  // those of what the starting folder holds; null without entries
  bool dryRun = false;
  bool leavesLinks = false;  // leaves out what has several links and another owner than the folder
};

struct Outcome {
  bool changed = false;    // or would be
  unsigned changes = 0;    // of Plan's
  std::string error;       // the first one; empty for none
  Levels::Pointer inside;  // of a folder: the levels of what it holds
};

// For one thread.
class ObjectSetter {
 public:
  // The arguments must outlive this object.
  ObjectSetter(const Propagation& propagation, FilePrivileges& privileges);

  // `object` is a descriptor, an O_PATH one or another, `status` what it is, `levels` those of the
  // folder that it is in.
  Outcome set(int object, const ObjectStatus& status, const Levels::Pointer& levels);

  // Whether setting the entry of that name in the thread's working directory would change something
  // or fail; not for folders.
  bool wouldSet(const char* name, const ObjectStatus& status, const Levels::Pointer& levels);

 private:
  Planner::Request wholeRequest() const;
  Outcome setLink(int object, const ObjectStatus& status) const;
  template <typename Get>
  void read(const ObjectStatus& status, const Get& get);

  const Propagation& propagation_;
  Planner planner_;
  ObjectState state_;
};

}  // namespace paddock::copyprivs
