// One folder's settings, by way of the plug-in paddock_sharing.
#pragma once

#include <string>

#include "base/value.h"
#include "keelhouse/failure.h"
#include "keelhouse/session.h"

namespace paddock::keelhouse {

// The whole reply. Its status is not looked at: a later part may fail where the wanted one is
// there.
Dictionary readFolder(const Session& session, const std::string& path);

// Writes what `configuration` names, and gives the reply with the settings as they were read back.
// Throws Failure for a status, beginning with `action` ("/srv/a cannot be shared").
Dictionary writeFolder(const Session& session, const std::string& path, Dictionary configuration,
                       const std::string& action);

// The dictionary under `key` of the reply's "configuration"; empty when there is none.
Dictionary settingsPart(const Dictionary& reply, const char* key);

// The folder's share point as it is stored: only "isShared" when it is not shared. Throws Failure
// when the reply does not say.
Dictionary readSharePoint(const Session& session, const std::string& path);

// Writes the record, and gives the share point as the daemon read it back. `nodeCredentials` are
// what the request carries for directory nodes ("dsCredentials").
Dictionary writeSharePoint(const Session& session, const std::string& path, Dictionary record,
                           const std::string& action, Array nodeCredentials = {});

bool isShared(const Dictionary& sharePoint);

Failure notShared(const std::string& path, const std::string& advice);

}  // namespace paddock::keelhouse
