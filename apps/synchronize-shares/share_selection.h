// Which share points become shares.
#pragma once

#include <functional>
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

// What Samba says of the lines of options that a share has, "" when it takes them.
using OptionsCheck = std::function<std::string(const std::string& lines)>;

// Of several share points with one name the first is published. `check` is asked about those that
// have parameters of their own; without it they are taken as they are.
ShareSelection selectShares(const std::vector<SharePoint>& sharePoints,
                            const OptionsCheck& check = nullptr);

}  // namespace paddock::synchronizer
