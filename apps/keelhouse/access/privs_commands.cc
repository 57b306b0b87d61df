#include "keelhouse/access/privs_commands.h"

#include <utility>

#include "base/text.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/access/list_state.h"
#include "keelhouse/access/principals.h"
#include "keelhouse/access/privileges_document.h"
#include "keelhouse/access/privileges_view.h"
#include "keelhouse/core/account_names.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/json_document.h"
#include "keelhouse/core/named_share.h"
#include "keelhouse/core/number_text.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kOwner = "owner";
constexpr std::string_view kGroup = "group";
constexpr std::string_view kMode = "privs";

void checkName(const std::optional<std::string>& name, const std::string& option) {
  if (!name) return;
  // The daemon takes an empty name for "leave it as it is".
  if (name->empty()) throw usageFailure(option + " cannot be empty");
  if (!isValidUtf8(*name)) throw usageFailure(option + " is not UTF-8");
}

// The daemon takes names alone; a number that is no name is looked up.
std::string accountName(const Session& session, PrincipalType type, const std::string& typed) {
  if (hostId(type, typed)) return typed;
  const auto number = parseInteger(typed);
  if (!number || *number < 0 || *number > UINT32_MAX) {
    requireSomebody(session, type, typed);
    return typed;
  }
  const auto name = hostName({type, static_cast<std::uint32_t>(*number)});
  if (name) return *name;
  throw failure("the number " + typed + " has no " +
                (type == PrincipalType::user ? "user" : "group") +
                " name, and owners are set by name");
}

// Owner and group as the daemon takes them. One that the path has already is left out: it may be a
// number without a name.
void requestAccount(const Session& session, Dictionary& privileges, std::string_view key,
                    PrincipalType type, const std::optional<std::string>& typed,
                    const std::string& present) {
  if (!typed || *typed == present) return;
  privileges.set(std::string(key), accountName(session, type, *typed));
}

// What the path is to have.
struct Wanted {
  Dictionary privileges;            // what is written
  std::optional<std::string> bits;  // the first of four digits
  std::optional<WantedAcl> acl;     // not among `privileges` yet
  bool isListDone = false;          // it is complete, and without entries, already
  bool leavesToMode = false;        // what no entry says, also where the list was complete
};

Wanted requested(const Session& session, const PrivilegeChanges& changes,
                 const std::optional<ModeAndIds>& present) {
  checkName(changes.owner, "--owner");
  checkName(changes.group, "--group");
  Wanted wanted;
  if (changes.mode) {
    const TypedMode mode = parseMode(*changes.mode);
    wanted.privileges.set(std::string(kMode), mode.permissions);
    wanted.bits = mode.bits;
  }
  requestAccount(session, wanted.privileges, kOwner, PrincipalType::user, changes.owner,
                 present ? present->uid : std::string());
  requestAccount(session, wanted.privileges, kGroup, PrincipalType::group, changes.group,
                 present ? present->gid : std::string());
  return wanted;
}

// An account may have several names.
bool sameAccount(PrincipalType type, const std::string& left, const std::string& right) {
  if (left == right) return true;
  const auto id = hostId(type, left);
  return id && hostId(type, right) == id;
}

bool tookOver(std::string_view key, const std::string& wanted, const std::string& found) {
  if (key == kOwner) return sameAccount(PrincipalType::user, wanted, found);
  if (key == kGroup) return sameAccount(PrincipalType::group, wanted, found);
  return wanted == found;
}

Failure notTakenOver(std::string_view key, const std::string& path, const std::string& wanted,
                     const std::string* found) {
  const std::string noun(key == kMode ? "mode" : key);
  std::string text = "the ";
  text.append(noun).append(" ").append(wanted).append(" was not taken over: ").append(path);
  text.append(" reads back with ");
  if (found != nullptr) {
    text.append(noun).append(" \"").append(*found).append("\"");
  } else {
    text.append("none");
  }
  return failure(text.append(", although the daemon reported success"));
}

void checkTakenOver(const std::string& path, const Dictionary& wanted, const Dictionary& found) {
  for (const std::string_view key : {kOwner, kGroup, kMode}) {
    const std::string* want = wanted.string(key);
    if (want == nullptr) continue;
    const std::string* have = found.string(key);
    if (have == nullptr || !tookOver(key, *want, *have)) {
      throw notTakenOver(key, path, *want, have);
    }
  }
}

void print(const Session& session, const Dictionary& privileges,
           const std::optional<ModeAndIds>& all, Principals& principals) {
  if (session.json) {
    Dictionary document = privilegesDocument(privileges, all, principals);
    if (const std::string* path = privileges.string("path"))
      addCompleteness(document, readListStateIfPossible(session, *path));
    session.out << wire::writeJsonPretty(document) << '\n';
    return;
  }
  session.out << formatPrivileges(privileges, all, principals);
  const std::string* path = privileges.string("path");
  const Array* acl = privileges.array("acl");
  if (path == nullptr || acl == nullptr || !acl->empty()) return;
  if (const auto state = readListStateIfPossible(session, *path))
    session.out << describeCompleteness(*state, *path, false);
}

// The folder's privileges as they are to be written, seen from what it has. Values of a document
// that the folder has already are not written: that would rewrite its list.
Dictionary settingsFor(const Session& session, const Wanted& wanted, const Dictionary& reading,
                       const std::string& path) {
  const Dictionary present = privilegesIn(reading, path);
  if (wanted.bits.value_or("0") != "0" && !isFolder(present)) {
    throw failure("set-id and sticky bits are for folders, and " + printable(path) +
                  " is none; nothing was changed");
  }
  if (!wanted.acl) return {{protocol::kFileAccessPrivs, wanted.privileges}};
  Dictionary privileges;
  for (const std::string_view key : {kOwner, kGroup, kMode}) {
    const std::string* want = wanted.privileges.string(key);
    const std::string* have = present.string(key);
    if (want != nullptr && (have == nullptr || *have != *want))
      privileges.set(std::string(key), *want);
  }
  const bool isSame = isSameList(*wanted.acl, aclOf(present, path));
  if (isSame && wanted.leavesToMode) (void)requireListMayOpen(session, path, present, false);
  if (!wanted.isListDone && !isSame) {
    if (wanted.acl->empty()) requireListMayGo(session, path, present, false);
    privileges.set("acl", sentAcl(*wanted.acl));
  }
  return {{protocol::kFileAccessPrivs, std::move(privileges)}};
}

void checkResult(const std::string& path, const Wanted& wanted, const Dictionary& found,
                 Principals& principals) {
  checkTakenOver(path, wanted.privileges, found);
  if (!wanted.acl) return;
  const auto difference =
      differenceOf(*wanted.acl, aclOf(found, path), isFolder(found), principals);
  if (difference) throw failure("the ACL of " + path + " was not taken over: " + *difference);
}

// Notes concurrent changes by others that were overwritten.
void noteOverwritten(const Session& session, const Dictionary& wanted,
                     const ChangedFolder& changed) {
  if (!changed.retried) return;
  const Dictionary first = settingsPart(changed.first, protocol::kFileAccessPrivs);
  const Dictionary last = settingsPart(changed.before, protocol::kFileAccessPrivs);
  for (const std::string_view key : {kOwner, kGroup, kMode}) {
    const std::string* before = first.string(key);
    const std::string* meanwhile = last.string(key);
    if (!wanted.contains(key) || before == nullptr || meanwhile == nullptr) continue;
    if (*before == *meanwhile || *meanwhile == *wanted.string(key)) continue;
    session.notes << "keelhouse: note: while this was done, somebody else set the "
                  << (key == kMode ? "mode" : key) << " to " << printable(*meanwhile) << "; it is "
                  << printable(*wanted.string(key)) << " now\n";
  }
}

// Asked before anything is written, so that it is known that the digit can be set.
std::optional<ModeAndIds> modeBefore(const Session& session, const std::string& path,
                                     const PrivilegeChanges& changes) {
  if (changes.mode && parseMode(*changes.mode).bits) return readMode(session, path);
  return changes.from ? readModeIfPossible(session, path) : std::nullopt;
}

ExitStatus changePrivileges(const Session& session, const std::string& path,
                            const PrivilegeChanges& changes, WantedPrivileges document,
                            Principals& principals) {
  const std::optional<ModeAndIds> before = modeBefore(session, path, changes);
  Wanted wanted = requested(session, changes, before);
  const bool leavesToMode = keelhouse::leavesToMode(document);
  wanted.acl = std::move(document.acl);
  const bool complete = wanted.acl && document.complete.value_or(false);
  wanted.isListDone = complete && wanted.acl->empty();
  wanted.leavesToMode = leavesToMode;
  if (wanted.isListDone) makeListComplete(session, path, true);
  const ChangedFolder changed = changeFolder(
      session, path,
      [&](const Dictionary& reading) { return settingsFor(session, wanted, reading, path); },
      "the privileges of " + path + " cannot be changed");
  const Dictionary found = privilegesIn(changed.after, path);
  if (changed.readBackIsOwn) checkResult(path, wanted, found, principals);
  if (complete && !wanted.isListDone) completeWrittenList(session, path);
  // A folder kept its digit, and setting it rewrites a list.
  const bool hasBits = before && wanted.bits && before->mode.starts_with(*wanted.bits);
  if (wanted.bits && !hasBits && isFolder(found)) setModeBits(session, path, *wanted.bits);
  noteOverwritten(session, wanted.privileges, changed);
  print(session, found, readModeIfPossible(session, path), principals);
  return ExitStatus::done;
}

PrivilegeChanges changesOf(const WantedPrivileges& wanted, const std::string& from) {
  if (!wanted.owner && !wanted.group && !wanted.mode && !wanted.acl) {
    throw usageFailure(from + " names no owner, group, mode or acl to set");
  }
  return {wanted.owner, wanted.group, wanted.mode, from};
}

}  // namespace

ExitStatus showPrivileges(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  const Dictionary privileges = readPrivileges(session, path);
  Principals principals(session);
  print(session, privileges, readModeIfPossible(session, path), principals);
  return ExitStatus::done;
}

ExitStatus setPrivileges(const Session& session, const std::string& typedPath,
                         const PrivilegeChanges& changes) {
  if (changes.empty()) throw usageFailure("privs set: no option says what to change");
  const std::string path = folderPath(session, typedPath);
  Principals principals(session);
  if (!changes.from) return changePrivileges(session, path, changes, {}, principals);
  WantedPrivileges wanted = wantedPrivileges(readDocument(*changes.from), principals);
  const PrivilegeChanges all = changesOf(wanted, *changes.from);
  return changePrivileges(session, path, all, std::move(wanted), principals);
}

}  // namespace paddock::keelhouse
