// Writing a share point together with its options over SMB, so that Samba never serves it with
// other ones.
#pragma once

#include <functional>
#include <string>

#include "base/value.h"
#include "keelhouse/session.h"
#include "keelhouse/smb_settings.h"

namespace paddock::keelhouse {

// A request to write a share point; `record`, `action` and `credentials` as writeSharePoint takes
// them.
struct ShareWriting {
  std::string path;
  Dictionary record;
  std::string action;
  Array credentials;
  std::function<Dictionary()> send = {};  // of a change: how it is written, instead of as it is
};

// Each gives the reply of the daemon, and throws Failure, having taken back what it wrote.
//
// A new share point: without options in one request; with options first without its name over SMB,
// so that nobody connects before they count.
Dictionary writeNewShare(const Session& session, const ShareWriting& writing,
                         const SmbChanges& changes);

// A change of the share point `stored`.
Dictionary writeChangedShare(const Session& session, const ShareWriting& writing,
                             const SmbChanges& changes, const Dictionary& stored);

}  // namespace paddock::keelhouse
