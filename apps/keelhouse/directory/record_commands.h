// `keelhouse record`: directory records, by way of the plug-in paddock_directory.
#pragma once

#include <string>
#include <vector>

#include "keelhouse/core/credentials.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Which node, and who asks it. Without an account the daemon's own rights hold.
struct NodeAccess {
  std::string node;  // empty: "/Local"
  NodeAccount account;
};

ExitStatus listRecords(const Session& session, const NodeAccess& access, const std::string& type);
ExitStatus showRecord(const Session& session, const NodeAccess& access, const std::string& type,
                      const std::string& name);
// `attributes` are ATTRIBUTE=VALUE words, `removals` names of attributes.
ExitStatus putRecord(const Session& session, const NodeAccess& access, const std::string& type,
                     const std::string& name, const std::vector<std::string>& attributes,
                     const std::vector<std::string>& removals);
ExitStatus deleteRecord(const Session& session, const NodeAccess& access, const std::string& type,
                        const std::string& name);
// `passwordDescriptor` holds the new password; -1: it is asked for.
ExitStatus setPassword(const Session& session, const NodeAccess& access, const std::string& name,
                       int passwordDescriptor);

}  // namespace paddock::keelhouse
