// Privileges as JSON documents, one form for all commands: what `acl show --json` and `privs show
// --json` print, and what `acl set --from` and `privs set --from` take back.
//
// A document is an object:
//
//   "path"      what it was printed of; not read back
//   "type"      "directory", "regular", ...; not read back
//   "owner"     a user's name, or the number where it has none
//   "group"     a group's, the same
//   "mode"      four octal digits
//   "acl"       the entries, in their order
//   "complete"  whether the list leaves nothing to the mode; absent where there is no list, or
//               where that cannot be determined. On input, true makes the list so; false does not
//               open a complete one
//   "aclError"  why there are none; not read back
//
// An entry is an object:
//
//   "kind"         "user", "group", or "unknown" for a principal without a known name
//   "name"         the short name; absent where "kind" says it all
//   "fullName"     where it says more; not read back
//   "guid"         the 36 characters that name the user or group for good; need not be there in a
//                  hand-written document
//   "allow"        true or false; absent in an entry of a kind that cannot be written
//   "rights"       words, as entries are typed; [] for none
//   "inheritance"  words, the same; absent for an entry that is not inherited
#pragma once

#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/access/acl_changes.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/access/list_state.h"
#include "keelhouse/access/principals.h"

namespace paddock::keelhouse {

// What a document asks for; what is absent was not in it.
struct WantedPrivileges {
  std::optional<std::string> owner;
  std::optional<std::string> group;
  std::optional<std::string> mode;  // four octal digits, or three
  std::optional<WantedAcl> acl;
  std::optional<bool> complete;
};

// Whether it asks for a list that leaves to the mode what no entry says: one that is named not
// complete, or none at all.
bool leavesToMode(const WantedPrivileges& wanted);

// `privileges`: as the daemon has them. Rights have their names for folders when they are of one.
Dictionary aclDocument(const Dictionary& privileges, const std::string& path, const Array& acl,
                       Principals& principals);

// Adds "complete" to a document with entries.
void addCompleteness(Dictionary& document, const std::optional<ListState>& state);

// The same with owner, group and mode: of `mode`, where it is known.
Dictionary privilegesDocument(const Dictionary& privileges, const std::optional<ModeAndIds>& mode,
                              Principals& principals);

// Throws Failure (usage) that names the entry and the key for what is no document, for a key that
// is not known, and for an entry whose "guid" is another one's than its name says.
WantedPrivileges wantedPrivileges(const Dictionary& document, Principals& principals);

}  // namespace paddock::keelhouse
