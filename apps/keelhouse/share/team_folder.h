// Folders in which the members of a group work together, at every door.
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

// Makes the folder the team's: its group, mode 2770, so that what is made inside is the group's
// whoever makes it, and behind the entries that it has one that lets the group read and write in it
// and in all that is made inside. What is inside already stays as it is; a note says so. Throws
// Failure before anything is written for a path that is no folder, or whose mode cannot be set.
void giveToTeam(const Session& session, const std::string& path, const Team& team);

}  // namespace paddock::keelhouse
