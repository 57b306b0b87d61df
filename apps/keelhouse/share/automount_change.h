// The record by which clients automount a share point, while the share point is changed.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/session.h"
#include "keelhouse/share/share_changes.h"

namespace paddock::keelhouse {

// The record in a directory node that has clients mount a shared folder: whether it is there.

// The name of a folder's record: this host's name, a colon and the path.
std::string mountRecordName(const std::string& path);

// The record of one folder on one node, as the node shows it to `credentials` (to the daemon
// without any). Every operation but the constructor throws Failure, its text saying what to do.
class MountRecord {
 public:
  MountRecord(const Session& session, std::string path, std::string node,
              std::optional<Credentials> credentials);

  // Throws when there is no such node, when it refuses the credentials, and when it does not
  // answer. Asked before anything is changed.
  void requireNode() const;
  // Throws when the node refuses the credentials.
  void requireCredentials() const;

  // Throws unless the record has clients mount the folder as `sharePoint` says.
  void requireWritten(const Dictionary& sharePoint) const;
  // Throws unless the record is known to be gone.
  void requireGone() const;

 private:
  Dictionary ask() const;
  void refuseCredentials(const Dictionary& reply) const;
  Failure notWritten(const std::string& problem) const;

  const Session& session_;
  std::string path_;
  std::string name_;
  std::string node_;
  std::optional<Credentials> credentials_;
};

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
