// The record by which clients automount a share point, while the share point is changed.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/core/credentials.h"
#include "keelhouse/core/session.h"
#include "keelhouse/share/mount_record.h"
#include "keelhouse/share/share_automount.h"

namespace paddock::keelhouse {

class AutomountChange {
 public:
  // Before the change of the folder at `path`, in the stored spelling: reads the account's password
  // and asks the node, unless the plan is to do nothing. Throws Failure when the node cannot be
  // written as that account.
  AutomountChange(const Session& session, const std::string& path, AutomountPlan plan,
                  const NodeAccount& account);

  // "dsCredentials" of the request that makes the change.
  Array credentials() const;

  // After it: throws Failure unless the record became what `sharePoint`, as read back, says.
  void check(const Dictionary& sharePoint) const;

 private:
  AutomountPlan plan_;
  std::optional<Credentials> credentials_;
  std::optional<MountRecord> record_;
};

}  // namespace paddock::keelhouse
