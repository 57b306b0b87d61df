// `keelhouse privs`: owner, group and mode of a path, with its ACL.
#pragma once

#include <optional>
#include <string>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// What the command line asks for; what is absent was not mentioned.
struct PrivilegeChanges {
  std::optional<std::string> owner;
  std::optional<std::string> group;
  std::optional<std::string> mode;  // as parseMode reads it
  std::optional<std::string> from;  // a document to take all of them from, and the ACL

  bool empty() const { return !owner && !group && !mode && !from; }
};

// Paths are taken as they were typed. Each throws Failure for what it cannot do; setPrivileges also
// when the daemon reports success, but what it reads back is something else. Concurrent changes by
// others are preserved, except for what the changes name.
ExitStatus showPrivileges(const Session& session, const std::string& path);
ExitStatus setPrivileges(const Session& session, const std::string& path,
                         const PrivilegeChanges& changes);

}  // namespace paddock::keelhouse
