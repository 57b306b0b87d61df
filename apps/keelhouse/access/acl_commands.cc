#include "keelhouse/access/acl_commands.h"

#include <algorithm>
#include <functional>
#include <sstream>

#include "keelhouse/access/acl_changes.h"
#include "keelhouse/access/denied_groups.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/access/kernel_acl.h"
#include "keelhouse/access/list_state.h"
#include "keelhouse/access/privileges_document.h"
#include "keelhouse/access/privileges_view.h"
#include "keelhouse/access/projection_view.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/json_document.h"
#include "keelhouse/core/named_share.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/core/terminal_text.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

void print(const Session& session, const std::string& path, const Array& acl,
           const Dictionary& privileges, Principals& principals) {
  if (session.json) {
    Dictionary document = aclDocument(privileges, path, acl, principals);
    addCompleteness(document, readListStateIfPossible(session, path));
    session.out << wire::writeJsonPretty(document) << '\n';
  } else if (acl.empty()) {
    session.out << printable(path) << " has no ACL entries.\n";
  } else {
    session.out << formatAclTable(acl, isFolder(privileges), principals);
  }
}

std::string failedAction(const std::string& path) {
  return "the ACL of " + path + " cannot be set";
}

Dictionary aclSettings(const WantedAcl& wanted) {
  return {{protocol::kFileAccessPrivs, Dictionary{{"acl", sentAcl(wanted)}}}};
}

void requireTakenOver(const std::string& path, const WantedAcl& wanted, const Array& found,
                      bool folder, Principals& principals) {
  if (const auto difference = differenceOf(wanted, found, folder, principals)) {
    throw failure("the ACL of " + path + " was not taken over: " + *difference +
                  ", although the daemon reported success");
  }
}

// Prints the list that was written, with the denials by name that a strict one gets then.
ExitStatus show(const Session& session, const std::string& path, const Array& written,
                const Dictionary& privileges, Principals& principals) {
  std::ostringstream notes;
  const Session later{session.daemon, session.out,  notes,
                      session.json,   session.root, session.terminal};
  const bool isStrict = noteGroupDenials(later, path, written);
  const Dictionary present = isStrict ? readPrivileges(session, path) : privileges;
  print(session, path, isStrict ? aclOf(present, path) : written, present, principals);
  session.out.flush();
  session.notes << notes.str();
  return ExitStatus::done;
}

// Replaces the path's ACL, and prints what was read back when it is that. `complete`: the list is
// to be complete then.
ExitStatus write(const Session& session, const std::string& path, const WantedAcl& wanted,
                 Principals& principals, bool complete = false) {
  const Dictionary reply = writeFolder(session, path, aclSettings(wanted), failedAction(path));
  const Dictionary found = privilegesIn(reply, path);
  const Array& acl = aclOf(found, path);
  requireTakenOver(path, wanted, acl, isFolder(found), principals);
  if (complete) completeWrittenList(session, path);
  return show(session, path, acl, found, principals);
}

// Of a list that was not complete when it was read, and replaced one that is.
void noteStillComplete(const Session& session, const std::string& path) {
  const auto state = readListStateIfPossible(session, path);
  if (!state || !state->complete) return;
  session.notes << "keelhouse: note: the list of " << printable(path)
                << " was complete and still is: nothing falls to the mode. To have none: keelhouse "
                   "acl clear "
                << shellWord(path) << '\n';
}

// Computes the new list from the present one of the path.
using Editing = std::function<WantedAcl(const Array& present)>;

// Changes of the list by others between the first read and the last one.
std::string changesMeanwhile(const ChangedFolder& changed, const std::string& path,
                             Principals& principals) {
  if (!changed.retried) return {};
  const Dictionary first = privilegesIn(changed.first, path);
  const Dictionary last = privilegesIn(changed.before, path);
  return changesBetween(aclOf(first, path), aclOf(last, path), isFolder(last), principals);
}

// Changes the path's ACL, and prints what was read back. No concurrent change is lost: when there
// was one, the list is read and edited again. `force` as in requireListMayGo.
ExitStatus edit(const Session& session, const std::string& path, Principals& principals,
                const Editing& editing, bool force = false) {
  WantedAcl wanted;
  const ChangedFolder changed = changeFolder(
      session, path,
      [&](const Dictionary& reading) {
        const Dictionary privileges = privilegesIn(reading, path);
        wanted = editing(aclOf(privileges, path));
        if (wanted.empty()) requireListMayGo(session, path, privileges, force);
        return aclSettings(wanted);
      },
      failedAction(path));
  const Dictionary found = privilegesIn(changed.after, path);
  const Array& acl = aclOf(found, path);
  if (changed.readBackIsOwn) requireTakenOver(path, wanted, acl, isFolder(found), principals);
  const std::string meanwhile = changesMeanwhile(changed, path, principals);
  if (!meanwhile.empty()) {
    session.notes << "keelhouse: note: while this was done, the ACL was changed: "
                  << printable(meanwhile) << "; both changes are made\n";
  }
  if (!changed.readBackIsOwn) {
    session.notes << "keelhouse: note: settings were changed again since; this is the ACL now\n";
  }
  return show(session, path, acl, found, principals);
}

// Gives numbers of entries the same meaning in every list: the entries at the time they were typed.
class NumberedEntries {
 public:
  // The first `count` entries are meant.
  NumberedEntries(std::string path, std::size_t count) : path_(std::move(path)), count_(count) {}

  // Throws Failure when the list begins otherwise than the first one did.
  void check(const Array& present, Principals& principals) {
    if (!first_) first_ = present;
    if (beginAlike(*first_, present, count_)) return;
    throw failure("the ACL of " + path_ +
                  " was changed meanwhile: " + changesBetween(*first_, present, true, principals) +
                  "; nothing was changed here\nThe numbers may mean other entries now. See them: "
                  "keelhouse acl show PATH");
  }

 private:
  std::string path_;
  std::size_t count_;
  std::optional<Array> first_;
};

std::size_t highestNumber(const std::vector<Removal>& removals) {
  std::size_t highest = 0;
  for (const Removal& removal : removals) {
    if (const auto* number = std::get_if<std::size_t>(&removal))
      highest = std::max(highest, *number);
  }
  return highest;
}

// The entries that the path would have if it took over what its parent folder makes inheritable.
Array inheritedAcl(const Session& session, const std::string& path) {
  const Dictionary reply =
      session.daemon.call("paddock_sharing", "fileInheritACL", {{"path", path}});
  if (const Array* acl = reply.array("acl")) return *acl;
  const std::string* error = reply.string("error");
  const std::string action = "what " + path + " inherits cannot be read";
  if (error != nullptr) throw errorFailure(action, *error);
  throw daemonFailure(action + ": the daemon's reply has no list");
}

// Of a list that is not in force everywhere, in whole lines.
const char* forceText(samba::ListForce force) {
  switch (force) {
    case samba::ListForce::inForce:
      break;
    case samba::ListForce::neverHeld:
      return "An SMB client has set this list where Samba ignores the kernel's ACLs. Where Samba\n"
             "serves a share by lists, it passes over this one and goes by the kernel (getfacl),\n"
             "until the list is set again (keelhouse acl set).\n";
    case samba::ListForce::overridden:
      return "An SMB client has set this list, and the mode, the owner or the kernel's ACL was\n"
             "changed since. Where Samba serves the share by lists, it goes by the kernel\n"
             "(getfacl); the list is in force again when it is set again (keelhouse acl set).\n";
    case samba::ListForce::unknown:
      return "Where Samba serves the share by lists, it cannot be told whether it goes by this\n"
             "list or by the kernel (getfacl), until the list is set again (keelhouse acl set).\n";
  }
  return "";
}

// Writes a list that leaves to the mode what no entry says, in the place of a complete one, which
// entries alone would leave complete.
ExitStatus openList(const Session& session, const std::string& path, const WantedAcl& wanted,
                    Principals& principals) {
  if (wanted.empty()) return clearAcl(session, path);
  writeFolder(session, path, aclSettings({}), failedAction(path));
  try {
    return write(session, path, wanted, principals);
  } catch (const Failure& failed) {
    throw failed.withMore("The list that it had is gone: the mode decides. Try again.");
  }
}

}  // namespace

ExitStatus showAcl(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  const Dictionary privileges = readPrivileges(session, path);
  Principals principals(session);
  const Array& acl = aclOf(privileges, path);
  if (session.json || !acl.empty()) print(session, path, acl, privileges, principals);
  const auto state = session.json ? std::nullopt : readListStateIfPossible(session, path);
  const std::string complete =
      state ? describeCompleteness(*state, path, !acl.empty()) : std::string();
  if (!session.json && acl.empty() && complete.empty())
    print(session, path, acl, privileges, principals);
  session.out << complete;
  if (!session.json) session.out << forceText(listForce(path));
  return ExitStatus::done;
}

ExitStatus showAclProjection(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  const Dictionary privileges = readPrivileges(session, path);
  Principals principals(session);
  const Projection projection = makeProjection(
      aclOf(privileges, path), privileges, readKernelAcls(path, isFolder(privileges)), principals);
  if (session.json) {
    session.out << wire::writeJsonPretty(projectionValue(projection)) << '\n';
  } else {
    session.out << formatProjection(path, projection);
  }
  return ExitStatus::done;
}

ExitStatus setAcl(const Session& session, const std::string& typedPath,
                  const std::vector<std::string>& entries) {
  const std::string path = folderPath(session, typedPath);
  if (entries.empty()) {
    throw usageFailure(
        "acl set: no entry is given\nTo take a document: --from FILE; to have no entries: "
        "keelhouse acl clear PATH");
  }
  const std::vector<TypedEntry> typed = parseEntries(entries);
  Principals principals(session);
  return write(session, path, newEntries(typed, principals), principals);
}

ExitStatus setAclFrom(const Session& session, const std::string& typedPath, const std::string& file,
                      bool force) {
  const std::string path = folderPath(session, typedPath);
  Principals principals(session);
  const WantedPrivileges wanted = wantedPrivileges(readDocument(file), principals);
  if (!wanted.acl) throw usageFailure(file + " has no \"acl\"");
  const Dictionary privileges = readPrivileges(session, path);
  const Array& present = aclOf(privileges, path);
  const bool complete = wanted.complete.value_or(false);
  const bool isNobodys = complete && wanted.acl->empty();
  const bool isSame = isSameList(*wanted.acl, present);
  if (leavesToMode(wanted) && (isSame || (force && !wanted.acl->empty())) &&
      requireListMayOpen(session, path, privileges, force)) {
    return openList(session, path, *wanted.acl, principals);
  }
  // An equal list is not written, and keeps what documents do not represent.
  if (!isNobodys && !isSame) {
    if (wanted.acl->empty()) requireListMayGo(session, path, privileges, force);
    const ExitStatus status = write(session, path, *wanted.acl, principals, complete);
    if (wanted.complete == false) noteStillComplete(session, path);
    return status;
  }
  if (complete) makeListComplete(session, path, isNobodys);
  const Dictionary found = isNobodys ? readPrivileges(session, path) : privileges;
  requireTakenOver(path, *wanted.acl, aclOf(found, path), isFolder(found), principals);
  if (isNobodys && !session.json) {
    session.out << describeCompleteness({true, true}, path, false);
  } else {
    print(session, path, aclOf(found, path), found, principals);
  }
  return ExitStatus::done;
}

ExitStatus clearAcl(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  Principals principals(session);
  const Dictionary reply = writeFolder(session, path, aclSettings({}), failedAction(path));
  const Dictionary found = privilegesIn(reply, path);
  requireTakenOver(path, {}, aclOf(found, path), isFolder(found), principals);
  if (session.json) {
    print(session, path, aclOf(found, path), found, principals);
  } else {
    session.out << formatAccessByMode(found) << '\n';
  }
  return ExitStatus::done;
}

ExitStatus addToAcl(const Session& session, const std::string& typedPath,
                    const std::vector<std::string>& entries, std::optional<std::size_t> number) {
  const std::string path = folderPath(session, typedPath);
  const std::vector<TypedEntry> typed = parseEntries(entries);
  Principals principals(session);
  const WantedAcl added = newEntries(typed, principals);
  NumberedEntries before(path, number ? *number - 1 : 0);
  return edit(session, path, principals, [&](const Array& present) {
    before.check(present, principals);
    return withAdded(keptEntries(present), added, number);
  });
}

ExitStatus removeFromAcl(const Session& session, const std::string& typedPath,
                         const std::vector<std::string>& words, bool force) {
  const std::string path = folderPath(session, typedPath);
  const std::vector<Removal> removals = parseRemovals(words);
  Principals principals(session);
  NumberedEntries numbered(path, highestNumber(removals));
  return edit(
      session, path, principals,
      [&](const Array& present) {
        numbered.check(present, principals);
        return withRemoved(keptEntries(present), removals, principals);
      },
      force);
}

ExitStatus inheritAcl(const Session& session, const std::string& typedPath, bool apply) {
  const std::string path = folderPath(session, typedPath);
  Principals principals(session);
  if (apply) {
    return edit(session, path, principals,
                [&](const Array&) { return keptEntries(inheritedAcl(session, path)); });
  }
  // The other request returns an empty list for a path that does not exist.
  const Dictionary privileges = readPrivileges(session, path);
  const Array acl = inheritedAcl(session, path);
  print(session, path, acl, privileges, principals);
  return ExitStatus::done;
}

}  // namespace paddock::keelhouse
