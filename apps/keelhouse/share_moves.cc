#include "keelhouse/share_moves.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "base/printable.h"
#include "base/text.h"
#include "keelhouse/acl_view.h"
#include "keelhouse/automount_change.h"
#include "keelhouse/export_lines.h"
#include "keelhouse/folder_privileges.h"
#include "keelhouse/folder_settings.h"
#include "keelhouse/named_share.h"
#include "keelhouse/principals.h"
#include "keelhouse/reply_status.h"
#include "keelhouse/served_states.h"
#include "keelhouse/share_commands.h"
#include "keelhouse/share_names.h"
#include "keelhouse/share_path.h"
#include "keelhouse/share_view.h"
#include "keelhouse/shell_word.h"
#include "keelhouse/smb_settings.h"
#include "samba/samba_text.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kDirectory = "paddock_directory";
constexpr const char* kSharePoints = "dsRecTypeStandard:SharePoints";
constexpr const char* kMounts = "dsRecTypeStandard:Mounts";
constexpr const char* kDirectoryPath = "dsAttrTypeNative:directory_path";
constexpr std::string_view kReshares = "/nfs_reshares";

std::string textOf(const Dictionary& dictionary, const char* key) {
  const std::string* text = dictionary.string(key);
  return text != nullptr ? *text : std::string();
}

bool isOn(const Dictionary& sharePoint, const char* key) {
  return sharePoint.boolean(key).value_or(false);
}

Dictionary deletedExport(const std::string& path) { return {{"path", path}, {"isDeleted", true}}; }

// One move, step by step; each step has the one that takes it back.
class Move {
 public:
  Move(const Session& session, Dictionary stored, std::string to, const NodeAccount& account)
      : session_(session),
        stored_(std::move(stored)),
        from_(textOf(stored_, "path")),
        to_(std::move(to)),
        name_(textOf(stored_, "name")),
        automount_(session, to_, automountPlan(account), account) {}

  // The share point as it is shown afterwards.
  Dictionary run();

 private:
  AutomountPlan automountPlan(const NodeAccount& account) const;
  const Array* clients() const;
  bool isReachable() const;

  Dictionary write(const std::string& path, Dictionary record) const {
    return writeSharePoint(session_, path, std::move(record),
                           "the share of " + printable(from_) + " cannot be moved",
                           automount_.credentials());
  }
  void exportNew() const;
  void unexportNew() const;
  void point(const std::string& path) const;
  Dictionary settle() const;
  void settleBack() const;
  void cleanUp(const Dictionary& moved) const;
  void removeOldMount() const;
  [[noreturn]] void takeBack(const Failure& reason, bool pointed, bool settled) const;

  const Session& session_;
  const Dictionary stored_;
  const std::string from_;
  const std::string to_;
  const std::string name_;
  AutomountChange automount_;
};

AutomountPlan Move::automountPlan(const NodeAccount& account) const {
  const std::string node = textOf(stored_, "automountDSPath");
  if (!isOn(stored_, "isAutomounted") || node.empty()) return {};
  if (account.name.empty()) {
    throw failure(
        "clients automount " + printable(from_) + " by " + printable(node) +
        ", which takes changes from an account alone: --admin USER\nNothing was changed.");
  }
  return {AutomountPlan::Step::write, node};
}

const Array* Move::clients() const {
  const Dictionary* record = stored_.dictionary("nfsExportRecord");
  return record != nullptr ? record->array("clients") : nullptr;
}

// Whether the daemon finds something at the old path; what does not answer there cannot be written.
bool Move::isReachable() const { return !textOf(stored_, "mountedOnPath").empty(); }

// Before the record is pointed there, so that clients find an export at every moment.
void Move::exportNew() const {
  if (clients() == nullptr || !isReachable()) return;
  write(from_,
        {{"path", from_}, {"nfsExportRecord", Dictionary{{"path", to_}, {"clients", *clients()}}}});
}

void Move::unexportNew() const {
  if (clients() == nullptr) return;
  write(from_, {{"path", from_}, {"nfsExportRecord", deletedExport(to_)}});
}

// One change of one attribute: at no moment is there no record, or a second one. A record that was
// removed meanwhile is not made anew.
void Move::point(const std::string& path) const {
  constexpr const char* kAnyState = "*";
  const std::string action = "the share of " + printable(from_) + " cannot be moved";
  const Dictionary request{
      {"type", kSharePoints}, {"name", name_}, {"attributes", Dictionary{{kDirectoryPath, path}}}};
  const auto reply = session_.daemon.callTagged(kDirectory, "putRecord", request, kAnyState);
  if (!reply) throw failure(action + ": its record " + printable(name_) + " is gone");
  requireStatus(reply->body, "status", action);
}

// What hangs on the path follows it: automount, backup, indexing, the SMB server's section; the
// old export goes.
Dictionary Move::settle() const {
  Dictionary record{{"path", to_}};
  if (clients() != nullptr && !isReachable()) {
    write(to_,
          {{"path", to_}, {"nfsExportRecord", Dictionary{{"path", to_}, {"clients", *clients()}}}});
  }
  if (clients() != nullptr) record.set("nfsExportRecord", deletedExport(from_));
  if (isOn(stored_, "isIndexingEnabled")) record.set("isIndexingEnabled", true);
  Dictionary moved = write(to_, std::move(record));
  if (!isShared(moved)) {
    throw failure("the share of " + printable(from_) + " cannot be moved: " + printable(to_) +
                  " does not read back as shared");
  }
  return moved;
}

void Move::settleBack() const {
  Dictionary record{{"path", from_}};
  if (clients() != nullptr) {
    record.set("nfsExportRecord", Dictionary{{"path", from_}, {"clients", *clients()}});
  }
  if (isOn(stored_, "isIndexingEnabled")) record.set("isIndexingEnabled", true);
  write(from_, std::move(record));
}

void Move::takeBack(const Failure& reason, bool pointed, bool settled) const {
  const DaemonClient::Aside aside(session_.daemon);
  try {
    if (pointed) point(from_);
    if (settled) settleBack();
    unexportNew();
  } catch (const std::exception& second) {
    throw reason.withMore(std::string("and what was begun could not be taken back: ") +
                          second.what() + "\nSee keelhouse share list.");
  }
  throw reason.withMore("Nothing was moved.");
}

// What the old folder's own settings leave behind: an index, a mark of a backup destination.
void Move::cleanUp(const Dictionary& moved) const {
  if (isOn(stored_, "isIndexingEnabled") || isOn(stored_, "isBackstowBackup")) {
    writeSharePoint(session_, from_, {{"isShared", false}},
                    "the share is moved, but traces of it remain on " + printable(from_));
  }
  automount_.check(moved);
  removeOldMount();
}

void Move::removeOldMount() const {
  const Array credentials = automount_.credentials();
  if (credentials.empty() || credentials.front().dictionary() == nullptr) return;
  Dictionary request = *credentials.front().dictionary();
  const std::string node = textOf(request, "nodePath");
  const std::string name = mountRecordName(from_);
  request.set("node", node);
  request.set("type", kMounts);
  request.set("name", name);
  requireStatus(
      session_.daemon.call(kDirectory, "deleteRecord", request), "status",
      "the share is moved, but the record " + printable(name) + " remains on " + printable(node));
}

Dictionary Move::run() {
  bool pointed = false;
  bool settled = false;
  Dictionary moved;
  try {
    exportNew();
    pointed = true;  // perhaps, also when it fails; so it is with the next step
    point(to_);
    settled = true;
    moved = settle();
  } catch (const Failure& reason) {
    takeBack(reason, pointed, settled);
  }
  cleanUp(moved);
  return moved;
}

void requireMovable(const Dictionary& stored, const std::string& from, const std::string& to) {
  if (from == to) throw failure(printable(to) + " is where the share is already");
  if (textOf(stored, "name").empty()) {
    throw failure("the daemon's reply does not name the record of " + printable(from));
  }
  const Dictionary* record = stored.dictionary("nfsExportRecord");
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
  // A path is found in any letter case, and what is taken away from the old one would be the new
  // one's.
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

// The privileges are the folder's; who moves a share may expect those that it had.
void notePrivileges(const Session& session, const std::string& from, const std::string& to) {
  try {
    const Dictionary before = readPrivileges(session, from);
    const Dictionary now = readPrivileges(session, to);
    const std::string commands = commandsForPrivileges(session, before, now, to);
    if (commands.empty() && before.find("acl") != nullptr && now.find("acl") != nullptr &&
        *before.find("acl") == *now.find("acl"))
      return;
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

// Who else has the name; empty when nobody does.
std::string holderOf(const Array& sharePoints, const std::string& path, const char* key,
                     const std::string& name) {
  for (const Value& value : sharePoints) {
    const Dictionary* other = value.dictionary();
    if (other == nullptr || textOf(*other, "path") == path) continue;
    if (samba::shareNameKey(textOf(*other, key)) == samba::shareNameKey(name)) {
      return textOf(*other, "path");
    }
  }
  return {};
}

void requireFree(const Array& sharePoints, const std::string& path, const ShareChanges& changes) {
  const std::pair<const char*, const std::optional<std::string>*> names[] = {
      {"name", &changes.name},
      {"nameOverVSP", &changes.vspName},
      {"nameOverSMB", &changes.smbName},
      {"nameOverFTP", &changes.ftpName}};
  for (const auto& [key, name] : names) {
    if (!*name || !isValidUtf8(**name)) continue;
    const std::string holder = holderOf(sharePoints, path, key, **name);
    if (holder.empty()) continue;
    throw failure("\"" + printable(**name) + "\" is taken by the share " + printable(holder) +
                  " (" + key + ")\nNothing was changed.");
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
  if (!changes.vspName && textOf(stored, "nameOverVSP") == shortened(old)) {
    changes.vspName = shortened(renaming.name);
  }
  if (!changes.smbName && textOf(stored, "nameOverSMB") == old) changes.smbName = renaming.name;
  if (!changes.ftpName && textOf(stored, "nameOverFTP") == old) changes.ftpName = renaming.name;
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
  const Dictionary reply = session.daemon.call("paddock_sharing", "getSharePointList", {});
  requireStatus(reply, "readStatus", "the names of the shares cannot be read");
  const Array* list = reply.array("sharePointList");
  if (list != nullptr) requireFree(*list, textOf(stored, "path"), changes);
  return setShare(session, path, changes, account, std::nullopt);
}

}  // namespace paddock::keelhouse
