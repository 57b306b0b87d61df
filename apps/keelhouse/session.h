// What a command works with.
#pragma once

#include <ostream>

#include "keelhouse/daemon_client.h"

namespace paddock::keelhouse {

struct Session {
  const DaemonClient& daemon;
  std::ostream& out;
  std::ostream& notes;  // what the user should know besides; standard error
  bool json = false;    // raw values instead of text for people
};

}  // namespace paddock::keelhouse
