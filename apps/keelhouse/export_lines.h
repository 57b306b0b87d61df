// Lines of the exports file for one path, of which there may be several when somebody wrote
// another.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/session.h"

namespace paddock::keelhouse {

struct ExportLine {
  std::string text;  // without its line end
  Array clients;
};

// Those of the managed block; empty where the daemon does not say.
std::vector<ExportLine> exportLines(const Session& session, const std::string& path);

// What every change of a share point does to several lines of its path: they become one. Says so
// before it is done; nothing of one line. The export that the change has to carry so that no client
// is lost, or absent when the change itself says what is exported (`replaced`), and when there is
// nothing to merge.
std::optional<Dictionary> mergedExport(const Session& session, const std::string& path,
                                       const std::vector<ExportLine>& lines, bool replaced);

}  // namespace paddock::keelhouse
