// One folder's settings, by way of the plug-in paddock_sharing.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// The whole reply, and the tag of the state that it describes. Its status is not checked: a later
// part may fail although the requested one is present.
TaggedReply readTaggedFolder(const Session& session, const std::string& path);
// The reply alone.
Dictionary readFolder(const Session& session, const std::string& path);

// Writes what `configuration` names, and gives the reply with the settings as they were read back.
// Throws Failure for a status, beginning with `action` ("/srv/a cannot be shared").
Dictionary writeFolder(const Session& session, const std::string& path, Dictionary configuration,
                       const std::string& action);

// A change that was made in a state that was read.
struct ChangedFolder {
  Dictionary first;   // the reply of the first reading
  Dictionary before;  // that of the last one, which the change was made of
  Dictionary after;   // that of the change
  bool retried = false;
  bool readBackIsOwn = true;  // false: others may have changed what was read back since
};

// What to write ("configuration"), from the reply of a reading. Called again for each reading, when
// others changed the folder's privileges or its share point in between; throws Failure for what
// cannot be done any more.
using Decision = std::function<Dictionary(const Dictionary& reading)>;

// Whether a failure of a change that left the settings as they were means that nothing was changed.
enum class ChangeKind { whole, stepOfMany };

// Reads the folder and writes what `decide` says, unless others changed it in between; then all
// again. Throws what writeFolder throws, and Failure when concurrent changes do not cease. `first`:
// the first reading, where there is one already. `nodeCredentials` as below.
ChangedFolder changeFolder(const Session& session, const std::string& path, const Decision& decide,
                           const std::string& action, std::optional<TaggedReply> first = {},
                           const Array& nodeCredentials = {}, ChangeKind kind = ChangeKind::whole);

// The dictionary under `key` of the reply's "configuration"; empty when there is none.
Dictionary settingsPart(const Dictionary& reply, const char* key);

// The folder's share point as it is stored: only "isShared" when it is not shared. Throws Failure
// when the reply does not say, and what requireSameFolder throws.
Dictionary readSharePoint(const Session& session, const std::string& path);
// The same of a reply that was read already, whatever folder it is of.
Dictionary sharePointIn(const Dictionary& reply, const std::string& path);

// The daemon finds share points in any letter case. Throws Failure when the one that it found for
// `path` is that of another folder and both are there, or is another path's by now.
void requireSameFolder(const Dictionary& sharePoint, const std::string& path);

// Writes the record, and gives the share point as the daemon read it back. `nodeCredentials` are
// what the request carries for directory nodes ("dsCredentials").
Dictionary writeSharePoint(const Session& session, const std::string& path, Dictionary record,
                           const std::string& action, Array nodeCredentials = {});

bool isShared(const Dictionary& sharePoint);

Failure notShared(const std::string& path, const std::string& advice);

}  // namespace paddock::keelhouse
