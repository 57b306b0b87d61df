// The record in a directory node that has clients mount a shared folder: whether it is there.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/core/credentials.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

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

}  // namespace paddock::keelhouse
