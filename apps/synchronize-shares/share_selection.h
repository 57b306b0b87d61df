// Which share points become shares.
#pragma once

#include <string>
#include <vector>

#include "synchronize-shares/share_points.h"

namespace paddock::synchronizer {

struct ShareSelection {
  // Each can be written as a section, and no two have the same name to Samba. They are among the
  // share points that were selected from, and live as long.
  std::vector<const SharePoint*> published;
  // A line for each of the others, which says which and why.
  std::vector<std::string> leftOut;
};

// Of several share points with one name the first is published.
ShareSelection selectShares(const std::vector<SharePoint>& sharePoints);

}  // namespace paddock::synchronizer
