// Sets the privileges of one object after the other.
#pragma once

#include <string>

#include "copyprivs/held_objects.h"
#include "copyprivs/object_state.h"
#include "copyprivs/planner.h"
#include "platform/linux/object_status.h"

namespace paddock::copyprivs {

// What is pushed down a tree.
struct Propagation {
  PrivsToSet privs{};      // without a composite
  std::string attribute;   // the one that holds extended ACLs
  Levels::Pointer levels;  // those of what the starting folder holds; null without entries
  bool dryRun = false;
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
  // The caller keeps what it passes alive.
  ObjectSetter(const Propagation& propagation, FilePrivileges& privileges,
               const HeldObjects& objects);

  // `object` is an O_PATH descriptor, `status` what it is, `levels` those of the folder that it is
  // in.
  Outcome set(int object, const ObjectStatus& status, const Levels::Pointer& levels);

 private:
  void setLink(int object, const ObjectStatus& status, Outcome& outcome);
  void read(int object, const ObjectStatus& status);
  void readAttribute(int object, const std::string& name, Attribute& attribute);
  bool perform(int object, const std::vector<ChangeStep>& steps, Planner::Request& request,
               Outcome& outcome);
  int performOne(int object, const ChangeStep& step) const;

  const Propagation& propagation_;
  const HeldObjects& objects_;
  Planner planner_;
  ObjectState state_;
};

}  // namespace paddock::copyprivs
