// What is known of a path's ACL besides its entries, by way of the plug-in paddock_files: whether
// the list is complete, so that nothing falls to the mode.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

struct ListState {
  bool present = false;  // also of a list without entries
  bool complete = false;
};

// Absent where the daemon has no such plug-in. Throws Failure when it cannot be determined.
std::optional<ListState> readListState(const Session& session, const std::string& path);
// The same; absent also when it cannot be determined, for callers that only read.
std::optional<ListState> readListStateIfPossible(const Session& session, const std::string& path);

// What a list that is complete means, for people, in whole lines; empty for any other.
std::string describeCompleteness(const ListState& state, const std::string& path, bool hasEntries);

// Throws Failure that names who would gain, unless `force`: when the path's list is complete, and
// would be taken away with its last entry. `privileges`: as the daemon has them now.
void requireListMayGo(const Session& session, const std::string& path, const Dictionary& privileges,
                      bool force);
// Whether the path's list is complete, which is to become one that leaves to the mode what no entry
// says. Throws Failure that names who would gain, unless `force`.
bool requireListMayOpen(const Session& session, const std::string& path,
                        const Dictionary& privileges, bool force);

// Makes the list leave nothing to the mode; one that does already is not written. `emptied`: its
// entries are removed, so that it grants no access. Throws Failure.
void makeListComplete(const Session& session, const std::string& path, bool emptied);
// The same of a list whose entries were just written, which the Failure says.
void completeWrittenList(const Session& session, const std::string& path);

}  // namespace paddock::keelhouse
