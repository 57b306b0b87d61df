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
  share_ += counts.share;
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

std::uint64_t RunReport::estimatedTotal(std::uint64_t done) const {
  // Less than that is an accident of the first folders.
  constexpr double kTelling = 0.001;
  const std::uint64_t found = std::max<std::uint64_t>(done, found_);
  const double share = share_;
  if (share < kTelling) return found;
  return std::max(found, static_cast<std::uint64_t>(static_cast<double>(done) / share));
}

void RunReport::fill(Dictionary& status, bool isEnded, bool dryRun) const {
  const std::uint64_t done = done_;
  status.set("itemsDone", done);
  status.set("itemsTotal", isEnded ? done : estimatedTotal(done));
  status.set("itemsChanged", changed_.load());
  status.set("errorCount", errorCount_.load());
  const std::lock_guard lock(mutex_);
  status.set("errors", errors_);
  if (dryRun) status.set("examples", examples_);
}

}  // namespace paddock::copyprivs
