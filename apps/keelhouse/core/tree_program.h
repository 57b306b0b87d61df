// A program of the tree that keelhouse operates on, run where no daemon can be asked to run it.
// Such programs read private data of all users, so they require root.
#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "base/file_access.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// A tree may be anybody's, but a program of it runs with the rights of the caller. So nobody but
// root and the caller may be able to change it or its path (see base/trusted_path.h). It is held
// from then on: what is run is what was checked.
class TreeProgram {
 public:
  // Throws Failure that says what others could have changed.
  explicit TreeProgram(const std::string& path);

  const std::string& path() const { return path_; }
  // posix_spawn(3) of what is held; `actions` get one more. Throws Failure.
  pid_t spawn(std::vector<std::string> words, posix_spawn_file_actions_t& actions,
              char* const* environment) const;

 private:
  const std::string path_;
  FileDescriptor held_;
};

// Runs the program below the session's root and prints its output as it is; its standard error goes
// to keelhouse's own. Throws Failure when the caller is not root, and for a program that is missing
// or cannot be started. `done` when it ends well, `unsure` when it ends with that status, else
// `failed`.
ExitStatus runTreeProgram(const Session& session, const std::string& place,
                          const std::vector<std::string>& arguments);

// Whether the program is there and this user may run it.
bool canRunTreeProgram(const Session& session, const std::string& place);

}  // namespace paddock::keelhouse
