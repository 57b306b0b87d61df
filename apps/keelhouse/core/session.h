// What a command works with.
#pragma once

#include <ostream>
#include <string>

#include "keelhouse/core/daemon_client.h"

namespace paddock::keelhouse {

struct Session {
  const DaemonClient& daemon;
  std::ostream& out;
  std::ostream& notes;    // what the user should know besides; standard error
  bool json = false;      // raw values instead of text for people
  std::string root = {};  // of the tree that the daemon belongs to; empty: the system
  bool terminal = false;  // whether `out` is one
};

}  // namespace paddock::keelhouse
