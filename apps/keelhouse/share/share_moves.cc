#include "keelhouse/share/share_moves.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "base/text.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/access/list_state.h"
#include "keelhouse/access/principals.h"
#include "keelhouse/access/privileges_view.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/named_share.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/share_path.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/share/automount_change.h"
#include "keelhouse/share/nfs_exports.h"
#include "keelhouse/share/served_states.h"
#include "keelhouse/share/share_commands.h"
#include "keelhouse/share/share_names.h"
#include "keelhouse/share/share_view.h"
#include "keelhouse/share/smb_settings.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kDirectory = "paddock_directory";
constexpr const char* kSharePoints = "dsRecTypeStandard:SharePoints";
constexpr const char* kMounts = "dsRecTypeStandard:Mounts";
constexpr const char* kDirectoryPath = "dsAttrTypeNative:directory_path";
constexpr std::string_view kReshares = "/nfs_reshares";

bool isOn(const Dictionary& sharePoint, const char* key) {
  return sharePoint.boolean(key).value_or(false);
}

Dictionary deletedExport(const std::string& path) {
  return {{"path", path}, {protocol::kIsDeleted, true}};
}

// Of all lines of a path, or of what the share point says where they cannot be asked for.
Array clientsIn(const std::optional<std::vector<ExportLine>>& lines, const Dictionary& sharePoint) {
  if (!lines) {
    const Dictionary* record = sharePoint.dictionary(protocol::kNfsExportRecord);
    const Array* clients = record != nullptr ? record->array("clients") : nullptr;
    return clients != nullptr ? *clients : Array{};
  }
  Array all;
  for (const ExportLine& line : *lines) {
    if (line.clients.empty()) {
      throw failure("its export became a line that was written by hand: " + printable(line.text));
    }
    all.insert(all.end(), line.clients.begin(), line.clients.end());
  }
  return all;
}

// One move, step by step. Its record is pointed to the new folder first, in the state that was
// read: the process that succeeds in it executes all other steps, so that only one of several
// concurrent moves is done.
class Move {
 public:
  Move(const Session& session, Dictionary stored, std::string to, const NodeAccount& account)
      : session_(session),
        stored_(std::move(stored)),
        from_(textOf(stored_, "path")),
        to_(std::move(to)),
        name_(textOf(stored_, "name")),
        action_("the share of " + printable(from_) + " cannot be moved"),
        automount_(session, to_, automountPlan(account), account) {}

  // The share point as it is shown afterwards.
  Dictionary run();

 private:
  // Where the record points; an empty path: there is none.
  struct Place {
    std::string path;
    std::string tag;
  };

  AutomountPlan automountPlan(const NodeAccount& account) const;
  Place place() const;
  std::string requireAsRead() const;
  bool point(const std::string& path, const std::string& tag) const;
  void requireOwn(const Dictionary& sharePoint, const std::string& path) const;
  Dictionary write(const std::string& path, Dictionary record) const;
  void exportTo(const std::string& path) const;
  void dropExport(const std::string& path, const std::string& carrier) const;
  Dictionary follow();
  void cleanUp(const Dictionary& moved) const;
  void removeOldMount() const;
  void noteLostExport(const Array& clients) const;
  std::string restore() const;
  [[noreturn]] void takeBack(const Failure& reason) const;

  const Session& session_;
  const Dictionary stored_;
  const std::string from_;
  const std::string to_;
  const std::string name_;
  const std::string action_;
  AutomountChange automount_;
  Array clients_;  // of the export that moves along
};

AutomountPlan Move::automountPlan(const NodeAccount& account) const {
  const std::string node = textOf(stored_, protocol::kAutomountDSPath);
  if (!isOn(stored_, protocol::kIsAutomounted) || node.empty()) return {};
  if (account.name.empty()) {
    throw failure(
        "clients automount " + printable(from_) + " by " + printable(node) +
        ", which takes changes from an account alone: --admin USER\nNothing was changed.");
  }
  return {AutomountPlan::Step::write, node};
}

Move::Place Move::place() const {
  // Without a condition there is always a reply.
  const TaggedReply reply = *session_.daemon.callTagged(kDirectory, "getRecord",
                                                        {{"type", kSharePoints}, {"name", name_}});
  requireStatus(reply.body, "status", action_);
  const Dictionary* record = reply.body.dictionary("record");
  const Array* paths = record != nullptr ? record->array(kDirectoryPath) : nullptr;
  if (paths == nullptr || paths->empty() || paths->front().string() == nullptr) return {};
  return {*paths->front().string(), reply.tag};
}

// The tag of the record, in which the share point is as it was read.
std::string Move::requireAsRead() const {
  const Place present = place();
  if (present.path.empty()) {
    throw failure(action_ + ": its record " + printable(name_) + " is gone\nNothing was moved.");
  }
  if (present.path != from_) {
    throw failure(action_ + ": somebody else moved it to " + printable(present.path) +
                  " meanwhile\nNothing was moved.");
  }
  if (sharePointIn(readFolder(session_, from_), from_) != stored_) {
    throw failure(action_ + ": somebody else changed it meanwhile\nNothing was moved. Try again.");
  }
  return present.tag;
}

// One change of one attribute: at no moment is there no record, or a second one. False when the
// record is not what `tag` names; one that was removed concurrently is not created again.
bool Move::point(const std::string& path, const std::string& tag) const {
  constexpr const char* kAnyState = "*";
  const Dictionary request{
      {"type", kSharePoints}, {"name", name_}, {"attributes", Dictionary{{kDirectoryPath, path}}}};
  const auto reply =
      session_.daemon.callTagged(kDirectory, "putRecord", request, tag.empty() ? kAnyState : tag);
  if (reply) requireStatus(reply->body, "status", action_);
  return reply.has_value();
}

void Move::requireOwn(const Dictionary& sharePoint, const std::string& path) const {
  if (isShared(sharePoint) && textOf(sharePoint, "path") == path &&
      textOf(sharePoint, "name") == name_) {
    return;
  }
  throw failure(action_ + ": somebody else moved, removed or renamed it meanwhile");
}

// While the path is the share's, and without concurrent changes.
Dictionary Move::write(const std::string& path, Dictionary record) const {
  record.set("path", path);
  const ChangedFolder changed = changeFolder(
      session_, path,
      [&](const Dictionary& reading) -> Dictionary {
        requireOwn(sharePointIn(reading, path), path);
        return {{protocol::kSharePointRecord, record}};
      },
      action_, {}, automount_.credentials(), ChangeKind::stepOfMany);
  return settingsPart(changed.after, protocol::kSharePointRecord);
}

void Move::exportTo(const std::string& path) const {
  if (clients_.empty()) return;
  write(path, {{protocol::kNfsExportRecord, Dictionary{{"path", path}, {"clients", clients_}}}});
}

// Of a folder where the share is not; `carrier` is where it is, empty when it is no more.
void Move::dropExport(const std::string& path, const std::string& carrier) const {
  if (clients_.empty() || path == carrier) return;
  if (isShared(sharePointIn(readFolder(session_, path), path))) return;
  if (const auto lines = exportLines(session_, path); lines && lines->empty()) return;
  if (!carrier.empty()) {
    write(carrier, {{protocol::kNfsExportRecord, deletedExport(path)}});
  } else {
    takeOutLeftExport(session_, path);
  }
}

// What depends on the path follows it: automount, backup, indexing, the SMB server's section; the
// old export is removed once the new one exists. From here on no process changes the old folder's
// export as the share's, so that it is taken as it is now.
Dictionary Move::follow() {
  clients_ = clientsIn(exportLines(session_, from_), stored_);
  exportTo(to_);
  Dictionary record;
  if (!clients_.empty()) record.set(protocol::kNfsExportRecord, deletedExport(from_));
  if (isOn(stored_, protocol::kIsIndexingEnabled)) record.set(protocol::kIsIndexingEnabled, true);
  Dictionary moved = write(to_, std::move(record));
  requireOwn(moved, to_);
  return moved;
}

// Where the share is after that: at the old folder again, unless it was changed concurrently.
std::string Move::restore() const {
  Place present = place();
  if (present.path == to_) {
    if (!point(from_, present.tag)) throw failure(action_ + ": somebody else changed it meanwhile");
    present.path = from_;
    if (const auto lines = exportLines(session_, from_); !lines || lines->empty()) exportTo(from_);
    if (isOn(stored_, protocol::kIsIndexingEnabled))
      write(from_, {{protocol::kIsIndexingEnabled, true}});
  }
  for (const std::string& path : {from_, to_}) dropExport(path, present.path);
  return present.path;
}

void Move::takeBack(const Failure& reason) const {
  const DaemonClient::Aside aside(session_.daemon);
  std::string path;
  try {
    path = restore();
  } catch (const std::exception& second) {
    throw reason.withMore(std::string("and what was begun could not be taken back: ") +
                          second.what() + "\nSee keelhouse share list.");
  }
  if (path == from_) throw reason.withMore("Nothing was moved.");
  throw reason.withMore(path.empty() ? "It is shared no longer." : "It is at " + path + " now.");
}

// What the old folder's own settings leave behind: an index, a mark of a backup destination.
void Move::cleanUp(const Dictionary& moved) const {
  if (isOn(stored_, protocol::kIsIndexingEnabled) || isOn(stored_, protocol::kIsBackstowBackup)) {
    writeSharePoint(session_, from_, {{protocol::kIsShared, false}},
                    "the share is moved, but traces of it remain on " + printable(from_));
  }
  automount_.check(moved);
  removeOldMount();
}

void Move::removeOldMount() const {
  const Array credentials = automount_.credentials();
  if (credentials.empty() || credentials.front().dictionary() == nullptr) return;
  Dictionary request = *credentials.front().dictionary();
  const std::string node = textOf(request, protocol::kNodePath);
  const std::string name = mountRecordName(from_);
  request.set("node", node);
  request.set("type", kMounts);
  request.set("name", name);
  requireStatus(
      session_.daemon.call(kDirectory, "deleteRecord", request), "status",
      "the share is moved, but the record " + printable(name) + " remains on " + printable(node));
}

// Whether it was taken from the share, or from the old folder that seemed to be left exported, is
// not known: not to export is safe, and to export again is one command.
void Move::noteLostExport(const Array& clients) const {
  session_.notes << "keelhouse: note: somebody took the NFS export of " << printable(from_)
                 << " away meanwhile, and " << printable(to_)
                 << " is not exported. To export it:\n  keelhouse share set "
                 << printable(shellWord(to_));
  for (const Value& client : clients) {
    if (client.dictionary() == nullptr) continue;
    session_.notes << " --nfs " << printable(shellWord(formatNfsClient(*client.dictionary())));
  }
  session_.notes << '\n';
}

Dictionary Move::run() {
  const std::string tag = requireAsRead();
  const Array clients = clientsIn(std::nullopt, stored_);
  clients_ = clients;
  bool pointed = false;
  Dictionary moved;
  try {
    pointed = point(to_, tag);
    if (pointed) moved = follow();
  } catch (const Failure& reason) {
    takeBack(reason);
  }
  if (!pointed) {
    throw failure(action_ + ": somebody else changed it meanwhile\nNothing was moved. Try again.");
  }
  if (clients_.empty() && !clients.empty()) noteLostExport(clients);
  cleanUp(moved);
  return moved;
}

void requireMovable(const Dictionary& stored, const std::string& from, const std::string& to) {
  if (from == to) throw failure(printable(to) + " is where the share is already");
  if (textOf(stored, "name").empty()) {
    throw failure("the daemon's reply does not name the record of " + printable(from));
  }
  const Dictionary* record = stored.dictionary(protocol::kNfsExportRecord);
  if (record != nullptr && record->array("clients") == nullptr) {
    throw failure("the export of " + printable(from) +
                  " is a line that was written by hand, and cannot be moved: change the path in "
                  "/etc/exports, or take it away with keelhouse share set " +
                  printable(shellWord(from)) + " --no-nfs\nNothing was changed.");
  }
  if (from.starts_with(kReshares) || to.starts_with(kReshares)) {
    throw failure("what is shared again below " + std::string(kReshares) +
                  " stays where it is mounted\nRemove the share, and add the new one.");
  }
}

void requireUnshared(const Session& session, const std::string& to, const std::string& from) {
  const Dictionary target = readSharePoint(session, to);
  if (!isShared(target)) return;
  // Paths are matched case-insensitively, and removals for the old one would affect the new one.
  if (textOf(target, "path") == from) {
    throw failure(
        printable(to) + " differs from " + printable(from) +
        " in letter case alone\nRemove the share, and add the new one.\nNothing was changed.");
  }
  throw failure(printable(to) + " is shared already, as " + printable(textOf(target, "name")) +
                "\nNothing was changed.");
}

std::string aclCommand(const Session& session, const std::string& path, const Array& acl) {
  if (acl.empty()) return {};
  Principals principals(session);
  std::string command = "keelhouse acl set " + shellWord(path);
  for (const Value& entry : acl) {
    command += " " + shellWord(entryText(readAce(entry), true, principals));
  }
  return "\n  " + command;
}

// What makes the privileges of `to` those of `from`; empty when they are.
std::string commandsForPrivileges(const Session& session, const Dictionary& from,
                                  const Dictionary& to, const std::string& path) {
  std::string set;
  for (const auto& [key, option] : {std::pair{"owner", "--owner"}, std::pair{"group", "--group"},
                                    std::pair{"privs", "--mode"}}) {
    const std::string wanted = textOf(from, key);
    if (wanted.empty() || wanted == textOf(to, key)) continue;
    set += std::string(" ") + option + " " + shellWord(wanted);
  }
  if (!set.empty()) set = "\n  keelhouse privs set " + shellWord(path) + set;
  const Array* wanted = from.array("acl");
  const Array* present = to.array("acl");
  if (wanted == nullptr || present == nullptr || Value(*wanted) == Value(*present)) return set;
  return set + aclCommand(session, path, *wanted);
}

bool isComplete(const Session& session, const std::string& path) {
  const auto state = readListStateIfPossible(session, path);
  return state && state->complete;
}

// The same of a complete list of `from`, which entries alone do not make; empty where it has none,
// or `to` has the same.
std::string commandForCompleteList(const Session& session, const std::string& from,
                                   const std::string& to, bool sameEntries) {
  if (!isComplete(session, from) || (sameEntries && isComplete(session, to))) return {};
  return "\n  keelhouse --json acl show " + shellWord(from) + " | keelhouse acl set " +
         shellWord(to) + " --from -";
}

// Privileges belong to the folder; a user who moves a share may expect the previous ones.
void notePrivileges(const Session& session, const std::string& from, const std::string& to) {
  try {
    const Dictionary before = readPrivileges(session, from);
    const Dictionary now = readPrivileges(session, to);
    const bool sameEntries = before.array("acl") != nullptr && now.array("acl") != nullptr &&
                             *before.array("acl") == *now.array("acl");
    const std::string list = commandForCompleteList(session, from, to, sameEntries);
    Dictionary wanted = before;
    if (!list.empty()) wanted.erase("acl");
    const std::string commands = commandsForPrivileges(session, wanted, now, to) + list;
    if (commands.empty() && sameEntries) return;
    session.notes << "keelhouse: note: the privileges of " << printable(to) << " are not those of "
                  << printable(from)
                  << (commands.empty() ? "; see keelhouse privs show"
                                       : ". To take them over:" + printableLines(commands))
                  << '\n';
  } catch (const Failure&) {
    session.notes << "keelhouse: note: the privileges of " << printable(to)
                  << " cannot be compared with those of " << printable(from)
                  << ", which cannot be read\n";
  }
}

ShareChanges changesOf(const Renaming& renaming, const Dictionary& stored) {
  const std::string old = textOf(stored, "name");
  ShareChanges changes;
  changes.name = renaming.name;
  changes.vspName = renaming.vspName;
  changes.smbName = renaming.smbName;
  changes.ftpName = renaming.ftpName;
  if (renaming.recordOnly || old.empty()) return changes;
  const auto shortened = [](const std::string& name) {
    return isValidUtf8(name) ? std::string(utf8Prefix(name, kMaximumVspNameLength)) : name;
  };
  if (!changes.vspName && textOf(stored, protocol::kNameOverVSP) == shortened(old)) {
    changes.vspName = shortened(renaming.name);
  }
  if (!changes.smbName && textOf(stored, protocol::kNameOverSMB) == old)
    changes.smbName = renaming.name;
  if (!changes.ftpName && textOf(stored, protocol::kNameOverFTP) == old)
    changes.ftpName = renaming.name;
  return changes;
}

}  // namespace

ExitStatus moveShare(const Session& session, const std::string& folder,
                     const std::string& newFolder, const NodeAccount& account) {
  const std::string path = folderPath(session, folder);
  const std::string to = absolutePath(newFolder);
  const Dictionary stored = readSharePoint(session, path);
  if (!isShared(stored)) throw notSharedHere(session, path, "See what is: keelhouse share list");
  const std::string from = textOf(stored, "path");
  requireMovable(stored, from, to);
  requireFolder(to);
  requireUnshared(session, to, from);
  requireOneExportLine(session, from, "the share of " + printable(from) + " cannot be moved",
                       false);
  Dictionary moved = Move(session, stored, to, account).run();
  addSmbOptions(session, moved);
  if (session.json) {
    session.out << wire::writeJsonPretty(moved) << '\n';
  } else {
    session.out << formatSharePoint(moved);
  }
  notePrivileges(session, from, to);
  return reportServed(session, to, false);
}

ExitStatus renameShare(const Session& session, const std::string& folder, const Renaming& renaming,
                       const NodeAccount& account) {
  const std::string path = folderPath(session, folder);
  const Dictionary stored = readSharePoint(session, path);
  if (!isShared(stored)) throw notSharedHere(session, path, "See what is: keelhouse share list");
  const ShareChanges changes = changesOf(renaming, stored);
  checkShareNames(changes);
  requireFreeNames(session, textOf(stored, "path"), changes);
  return setShare(session, path, changes, account, std::nullopt);
}

}  // namespace paddock::keelhouse
