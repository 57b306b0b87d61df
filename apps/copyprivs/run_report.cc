#include "copyprivs/run_report.h"

#include <algorithm>

#include "copyprivs/planner.h"
#include "copyprivs/short_path.h"

namespace paddock::copyprivs {

namespace {

Array namesOf(unsigned changes) {
  Array names;
  if ((changes & Plan::kOwner) != 0) names.emplace_back("owner");
  if ((changes & Plan::kGroup) != 0) names.emplace_back("group");
  if ((changes & Plan::kMode) != 0) names.emplace_back("mode");
  if ((changes & Plan::kAcl) != 0) names.emplace_back("acl");
  return names;
}

}  // namespace

void RunReport::add(Counts& counts) {
  found_ += counts.found;
  changed_ += counts.changed;
  done_ += counts.done;
  counts = {};
}

void RunReport::addError(const std::string& path, const std::string& error) {
  if (errorCount_++ >= kKept) return;
  const std::lock_guard lock(mutex_);
  errors_.emplace_back(Dictionary{{"path", shortPath(path)}, {"error", error}});
}

void RunReport::addExample(const std::string& path, unsigned changes) {
  if (exampleCount_++ >= kKept) return;
  const std::lock_guard lock(mutex_);
  examples_.emplace_back(Dictionary{{"path", shortPath(path)}, {"changes", namesOf(changes)}});
}

void RunReport::fill(Dictionary& status, bool dryRun) const {
  const std::uint64_t done = done_;
  status.set("itemsDone", done);
  status.set("itemsTotal", std::max<std::uint64_t>(done, found_));
  status.set("itemsChanged", changed_.load());
  status.set("errorCount", errorCount_.load());
  const std::lock_guard lock(mutex_);
  status.set("errors", errors_);
  if (dryRun) status.set("examples", examples_);
}

}  // namespace paddock::copyprivs
