// `keelhouse record`: directory records, by way of the plug-in paddock_directory.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Short forms of directory names on the command line.

// "users", "groups", "sharepoints" and "mounts" stand for their record types; a text with a ":" is
// a type itself. Throws Failure (usage) for any other text.
std::string recordType(const std::string& text);

// "dsAttrTypeStandard:" before a name without ":".
std::string attributeName(const std::string& text);

// ATTRIBUTE=VALUE words as a dictionary attribute -> array of values; a repeated attribute has
// several. Throws Failure (usage) for words of another form.
Dictionary parseAttributes(const std::vector<std::string>& words);

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
