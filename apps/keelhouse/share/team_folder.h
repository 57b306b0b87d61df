// Folders shared by the members of a group, over every protocol and locally.
#pragma once

#include <string>

#include "keelhouse/access/principals.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

struct Team {
  std::string group;  // by the name that the daemon takes
  ResolvedPrincipal who;
};

// Throws Failure for a group that is not there.
Team findTeam(const Session& session, const std::string& group);

// Gives the folder to the team: its group, mode 2770, so that new objects inside belong to the
// group whatever user creates them, and after the existing entries one that grants the group
// reading and writing, inherited by new objects. Existing contents are left as they are; a note
// says so. Throws Failure before anything is written for a path that is no folder, or whose mode
// cannot be set.
void giveToTeam(const Session& session, const std::string& path, const Team& team);

}  // namespace paddock::keelhouse
