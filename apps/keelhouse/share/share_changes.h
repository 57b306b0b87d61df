// The share point dictionaries that `share add` and `share set` send.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/share/smb_settings.h"

namespace paddock::keelhouse {

// What the command line asks for; what is absent was not mentioned.
struct ShareChanges {
  std::optional<std::string> name;
  std::optional<std::string> vspName;
  std::optional<std::string> smbName;
  std::optional<std::string> ftpName;
  std::optional<bool> vsp;
  std::optional<bool> smb;
  std::optional<bool> ftp;
  std::vector<std::string> nfsClients;  // as parseNfsClient reads them; "": no client was named
  bool noNfs = false;
  std::optional<std::string> automountPath;  // where clients mount it: over NFS with nfsClients
  std::optional<bool> automountOverNfs;      // absent: with nfsClients
  std::optional<std::string> automountNode;  // absent: the node that is stored
  bool noAutomount = false;
  std::optional<bool> backup;
  std::optional<bool> indexed;
  SmbChanges smbOptions;
  bool requireServed = false;  // no change: it only has an exit status of its own when not served

  bool empty() const;
};

// A new share point: published over VSP, SMB and FTP unless the changes say otherwise, each name
// that was not given being the last part of the path (over VSP its first 31 characters). Throws
// Failure (usage) for names and automounts that cannot be used.
Dictionary newShareRecord(const std::string& path, const ShareChanges& changes);

// What changes in the share point `stored`, and nothing else. A protocol that is switched on
// without a name keeps the stored one, or gets the last part of the path. Throws the same.
Dictionary changedShareRecord(const std::string& path, const ShareChanges& changes,
                              const Dictionary& stored);

// The automount of a share point: what the command line says of it, and what follows.
//
// Clients mount a folder by a record in a directory node. Writing the record requires
// authentication there, and the daemon does not report its outcome.

// Sets the automount properties that `changes` asks for. Throws Failure (usage) for a mount path or
// a node that cannot be used.
void setAutomount(Dictionary& record, const ShareChanges& changes, const Dictionary& stored);

// What a change does to the record.
struct AutomountPlan {
  enum class Step { none, write, remove };
  Step step = Step::none;
  std::string node;  // where; not empty unless the step is none
};

// Of `share add` and `share set`: `stored` is the share point before (empty for a new one),
// `rewrite` asks for the record of one that stays as it is. Throws Failure when the share point is
// automounted by another node.
AutomountPlan planAutomount(const ShareChanges& changes, const Dictionary& stored, bool rewrite);

// Of `share remove`.
AutomountPlan planAutomountRemoval(const Dictionary& stored);

}  // namespace paddock::keelhouse
