// The automount of a share point: what the command line says of it, and what follows.
//
// Clients mount a folder by a record in a directory node. Whoever writes the record authenticates
// there, and the daemon reports nothing of what became of it.
#pragma once

#include <string>

#include "base/value.h"
#include "keelhouse/share/share_changes.h"

namespace paddock::keelhouse {

// Sets the automount properties that `changes` asks for. Throws Failure (usage) for a mount path or
// a node that cannot be used.
void setAutomount(Dictionary& record, const ShareChanges& changes, const Dictionary& stored);

// What a change does to the record.
struct AutomountPlan {
  enum class Step { none, write, remove };
  Step step = Step::none;
  std::string node;  // where; not empty unless the step is none
};

// Of `share add` and `share set`: `stored` is the share point before (empty for a new one),
// `rewrite` asks for the record of one that stays as it is. Throws Failure when the share point is
// automounted by another node.
AutomountPlan planAutomount(const ShareChanges& changes, const Dictionary& stored, bool rewrite);

// Of `share remove`.
AutomountPlan planAutomountRemoval(const Dictionary& stored);

}  // namespace paddock::keelhouse
