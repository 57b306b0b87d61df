// `keelhouse acl`: the access-control list of a path.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Paths are taken as they were typed, entries as parseEntries reads them. Each throws Failure for
// what it cannot do; those that write also when the daemon reports success, but what it reads back
// is something else.
ExitStatus showAcl(const Session& session, const std::string& path);
// What the kernel's own ACL cannot say of the entries, and what it says.
ExitStatus showAclProjection(const Session& session, const std::string& path);
// Throws Failure (usage) without entries.
ExitStatus setAcl(const Session& session, const std::string& path,
                  const std::vector<std::string>& entries);
// The entries of a document; see privileges_document.h. `force`: also when that takes away a list
// that is complete, so that the mode lets people in again.
ExitStatus setAclFrom(const Session& session, const std::string& path, const std::string& file,
                      bool force);
// Says who can get in afterwards.
ExitStatus clearAcl(const Session& session, const std::string& path);
// Concurrent changes of the list by others are preserved. `number`: the position of the first new
// entry, from 1; absent: appended.
ExitStatus addToAcl(const Session& session, const std::string& path,
                    const std::vector<std::string>& entries, std::optional<std::size_t> number);
// `words`: numbers of entries, and users and groups as parsePrincipal reads them. `force` as above.
ExitStatus removeFromAcl(const Session& session, const std::string& path,
                         const std::vector<std::string>& words, bool force);
// The path's own entries and, behind them, those that its parent folder has files inherit; with
// `apply` that becomes the ACL.
ExitStatus inheritAcl(const Session& session, const std::string& path, bool apply);

}  // namespace paddock::keelhouse
