// What the services that publish share points make of them, by way of the plug-in paddock_services.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Before a share point is written: throws Failure, beginning with `action` ("/srv/a cannot be
// shared"), when what `record` names cannot be served: a name over SMB that is taken or reserved,
// an option or a host of an NFS client. A name that was not given is replaced by a free one when
// another share point has it, and `mayBeNumbered` then. A daemon that cannot say refuses nothing.
void requireServable(const Session& session, const std::string& action, const Dictionary& record,
                     bool mayBeNumbered);

// After it: a note for each name of `wanted` that became another one in `result`, since another
// share point had it.
void announceNewNames(const Session& session, const Dictionary& wanted, const Dictionary& result);

// After it: one sentence on standard error that says over what the folder is served. Gives
// `notServed` when it is not, or that is not known, and `required`.
ExitStatus reportServed(const Session& session, const std::string& path, bool required);

// After a share point was removed: a sentence when its folder is served all the same.
void reportStillServed(const Session& session, const std::string& path);

// The states of all share points: getServed's array, or why they are not known.
struct ServedStates {
  Array sharePoints;
  std::string error;

  bool areGood() const;
};
ServedStates askAllServed(const Session& session);

// Rows "share PATH" and its sentence.
std::vector<std::vector<std::string>> servedRows(const ServedStates& states);

// A table of the share points with the state of each protocol, and below it a line for each that is
// not served; JSON when asked for it.
ExitStatus listServedStates(const Session& session, bool required);

}  // namespace paddock::keelhouse
