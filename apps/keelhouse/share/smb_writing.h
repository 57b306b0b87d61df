// Writing a share point together with its options over SMB, so that Samba never serves it with
// other ones.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/core/session.h"
#include "keelhouse/share/smb_settings.h"

namespace paddock::keelhouse {

// A request to write a share point.
struct ShareWriting {
  std::string path;
  Dictionary record;
  std::string action;                       // "/srv/a cannot be shared"
  Array credentials;                        // for directory nodes ("dsCredentials")
  std::optional<TaggedReply> reading = {};  // of the folder, unless it was changed since
};

// Each gives the reply of the daemon, and throws Failure, having taken back what it wrote.
//
// A new share point: without options in one request; with options first without its name over SMB,
// so that no client connects before they apply. A folder that is concurrently shared by another
// caller is left to it, and a record that a refused request left without settings is deleted; notes
// say so.
Dictionary writeNewShare(const Session& session, const ShareWriting& writing,
                         const SmbChanges& changes);

// A change of the share point `stored`, which `write` writes.
Dictionary writeChangedShare(const Session& session, const SmbChanges& changes,
                             const Dictionary& stored, const std::function<Dictionary()>& write);

// Throws Failure when the folder is shared.
void requireNotShared(const Dictionary& sharePoint, const std::string& path);

}  // namespace paddock::keelhouse
