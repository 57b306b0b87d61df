// `keelhouse privs`: owner, group and mode of a path, with its ACL.
#pragma once

#include <optional>
#include <string>

#include "keelhouse/failure.h"
#include "keelhouse/session.h"

namespace paddock::keelhouse {

// What the command line asks for; what is absent was not mentioned.
struct PrivilegeChanges {
  std::optional<std::string> owner;
  std::optional<std::string> group;
  std::optional<std::string> mode;  // as parseMode reads it

  bool empty() const { return !owner && !group && !mode; }
};

// Paths are taken as they were typed. Each throws Failure for what it cannot do; setPrivileges also
// when the daemon reports success, but what it reads back is something else.
ExitStatus showPrivileges(const Session& session, const std::string& path);
ExitStatus setPrivileges(const Session& session, const std::string& path,
                         const PrivilegeChanges& changes);

}  // namespace paddock::keelhouse
