// An NFS client on the command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// CLIENT or CLIENT(OPTION,OPTION...) as {"host", "options"}. Throws Failure (usage) for a text of
// another form, and for one that a line of the exports file cannot hold.
Dictionary parseNfsClient(const std::string& text);

// The text of such a dictionary.
std::string formatNfsClient(const Dictionary& client);

// Lines of the exports file for one path, of which there may be several when another was added by
// hand.
struct ExportLine {
  std::string text;  // without its line end
  Array clients;
};

// Those of the managed block; absent where the daemon cannot say. Throws Failure when it cannot
// read the file.
std::optional<std::vector<ExportLine>> exportLines(const Session& session, const std::string& path);

// Notes that exports are listed as they were last read, where the file cannot be read now.
void noteUnreadExports(const Session& session);

// A change of a share point makes one of several lines of its path. Throws Failure, beginning with
// `action`, when there are several and the change does not say itself what is exported
// (`replaced`); when it does a note names the lines that give way.
void requireOneExportLine(const Session& session, const std::string& path,
                          const std::string& action, bool replaced);

}  // namespace paddock::keelhouse
