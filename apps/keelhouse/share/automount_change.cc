#include "keelhouse/share/automount_change.h"

#include <utility>

namespace paddock::keelhouse {

using Step = AutomountPlan::Step;

AutomountChange::AutomountChange(const Session& session, const std::string& path,
                                 AutomountPlan plan, const NodeAccount& account)
    : plan_(std::move(plan)) {
  if (plan_.step == Step::none) return;
  credentials_ = readCredentials(account);
  record_.emplace(session, path, plan_.node, credentials_);
  // Sharing can be ended without the node.
  if (plan_.step == Step::write) record_->requireNode();
  if (plan_.step == Step::remove) record_->requireCredentials();
}

Array AutomountChange::credentials() const {
  if (!credentials_) return {};
  Dictionary entry{{"nodePath", plan_.node}};
  setCredentials(entry, credentials_);
  return Array{Value(std::move(entry))};
}

void AutomountChange::check(const Dictionary& sharePoint) const {
  if (plan_.step == Step::write) record_->requireWritten(sharePoint);
  if (plan_.step == Step::remove) record_->requireGone();
}

}  // namespace paddock::keelhouse
