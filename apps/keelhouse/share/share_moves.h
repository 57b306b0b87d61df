// `keelhouse share move` and `share rename`.
#pragma once

#include <optional>
#include <string>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Re-points the share of one folder to another, which is there and not shared. The share point's
// record stays, with its names and all else in it; its NFS export, the record by which clients
// automount it, and its backup and indexing settings go along. What fails on the way is taken back;
// the folders themselves and their privileges are left alone. `folder` is a path or a share's name,
// `account` as `share set` takes it.
ExitStatus moveShare(const Session& session, const std::string& folder,
                     const std::string& newFolder, const NodeAccount& account);

// The names that a renamed share gets where they are not to follow.
struct Renaming {
  std::string name;  // of the record
  std::optional<std::string> vspName;
  std::optional<std::string> smbName;
  std::optional<std::string> ftpName;
  bool recordOnly = false;
};

// Gives the record a new name, and those of the names over VSP, SMB and FTP that were the same as
// the old one. Refuses a name that another share has.
ExitStatus renameShare(const Session& session, const std::string& folder, const Renaming& renaming,
                       const NodeAccount& account);

}  // namespace paddock::keelhouse
