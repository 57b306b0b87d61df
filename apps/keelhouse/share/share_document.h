// Share points as JSON documents: what `share show --json` prints, and `share add --from` and
// `share set --from` take back.
#pragma once

#include "base/value.h"
#include "keelhouse/share/share_changes.h"

namespace paddock::keelhouse {

// What makes the share point `stored` (empty: a new one) that of the document: what the document
// has otherwise changes, what it does not have goes. Its path, and what the daemon sets by itself
// ("mountedOnPath", "backstowBackupUUID"), are not read back. Throws Failure (usage) for a key that
// is not known, a value of another type, and what cannot be written.
ShareChanges changesFrom(const Dictionary& document, const Dictionary& stored);

}  // namespace paddock::keelhouse
