#include "keelhouse/share/share_commands.h"

#include <sys/stat.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "base/text.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/json_document.h"
#include "keelhouse/core/named_share.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/share_path.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/share/automount_change.h"
#include "keelhouse/share/begun_share.h"
#include "keelhouse/share/nfs_exports.h"
#include "keelhouse/share/served_states.h"
#include "keelhouse/share/share_changes.h"
#include "keelhouse/share/share_document.h"
#include "keelhouse/share/share_names.h"
#include "keelhouse/share/share_notes.h"
#include "keelhouse/share/share_view.h"
#include "keelhouse/share/smb_settings.h"
#include "keelhouse/share/smb_writing.h"
#include "keelhouse/share/team_folder.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_sharing";

void print(const Session& session, const Dictionary& sharePoint) {
  if (session.json) {
    session.out << wire::writeJsonPretty(sharePoint) << '\n';
  } else {
    session.out << formatSharePoint(sharePoint);
  }
}

void printNotes(const Session& session, const Dictionary& sharePoint) {
  for (const std::string& note : notesOn(sharePoint))
    session.notes << "keelhouse: note: " << note << '\n';
}

// The stored path may differ from the given one by letter case.
std::string storedPath(const Dictionary& stored, const std::string& path) {
  const std::string* found = stored.string("path");
  return found != nullptr ? *found : path;
}

bool isNamedSo(const Dictionary& stored, const std::optional<std::string>& name) {
  const std::string* present = stored.string("name");
  return !name || (present != nullptr && *present == *name);
}

void requireTakenOver(const Dictionary& wanted, const Dictionary& found, const char* key,
                      const std::string& what) {
  const auto want = wanted.boolean(key);
  if (!want || found.boolean(key).value_or(false) == *want) return;
  throw daemonFailure(what + " is still " + (*want ? "off" : "on"));
}

// Prints the outcome of writing `record`, which `reply` answers, and checks whether clients see it.
ExitStatus showWritten(const Session& session, const std::string& path, const Dictionary& record,
                       const Dictionary& reply, const AutomountChange& automount,
                       bool requireServed) {
  // A failure detected below is attributed to the write.
  const DaemonClient::Aside aside(session.daemon);
  Dictionary result = settingsPart(reply, protocol::kSharePointRecord);
  if (!isShared(result)) {
    throw daemonFailure(printable(path) + " was written, but does not read back as shared");
  }
  requireExported(session, storedPath(result, path), record, result);
  addSmbOptions(session, result);
  print(session, result);
  for (const std::string& warning :
       warningsOn(result, settingsPart(reply, protocol::kFileAccessPrivs))) {
    session.notes << "keelhouse: warning: " << printable(warning) << '\n';
  }
  printNotes(session, result);
  announceNewNames(session, record, result);
  requireTakenOver(record, result, protocol::kIsBackstowBackup, "its use for backups");
  requireTakenOver(record, result, protocol::kIsIndexingEnabled, "its indexing");
  automount.check(result);
  return reportServed(session, storedPath(result, path), requireServed);
}

// What the command line asks for: options, or all that a document has.
class ChangeSource {
 public:
  ChangeSource(const ShareChanges& typed, const std::optional<std::string>& from) : typed_(typed) {
    if (!from) return;
    if (!typed.empty()) {
      throw usageFailure("--from says everything: no option that changes the share goes with it");
    }
    document_ = readDocument(*from);
  }

  // What changes in the share point `stored`; empty: a new one.
  ShareChanges seenFrom(const Dictionary& stored) const {
    return document_ ? changesFrom(*document_, stored) : typed_;
  }

 private:
  const ShareChanges& typed_;
  std::optional<Dictionary> document_;
};

// What is done to the record that clients automount by was planned for the stored state.
void requireSameAutomount(const Dictionary& stored, const Dictionary& present,
                          const std::string& path) {
  for (const char* key :
       {protocol::kIsAutomounted, protocol::kAutomountMountPath, protocol::kAutomountDSPath}) {
    const Value* before = stored.find(key);
    const Value* now = present.find(key);
    const bool same = before != nullptr && now != nullptr ? *before == *now : before == now;
    if (same) continue;
    throw failure("how clients automount " + printable(path) +
                  " was changed meanwhile; nothing was changed here\nTry again.");
  }
}

// What is written of a share point that was read, `present`; `stored` is what it was at first.
Dictionary recordFor(const ChangeSource& source, const Dictionary& stored,
                     const Dictionary& present, const std::string& path) {
  if (!isShared(present)) throw notShared(path, "It was taken out of sharing meanwhile.");
  requireSameAutomount(stored, present, path);
  return changedShareRecord(path, source.seenFrom(present), present);
}

// What is known of the shared folder, when it is not present as expected; empty otherwise. The
// daemon, which may read everything, names a mount point for each path that it finds.
std::string folderState(const Dictionary& sharePoint) {
  const std::string* path = sharePoint.string("path");
  const std::string* mountPoint = sharePoint.string(protocol::kMountedOnPath);
  const bool isFound = mountPoint != nullptr && !mountPoint->empty();
  struct stat attributes {};
  if (path != nullptr && ::stat(path->c_str(), &attributes) == 0) {
    return S_ISDIR(attributes.st_mode) ? "" : "no folder";
  }
  if (isFound) return {};
  return path != nullptr && (errno == ENOENT || errno == ENOTDIR) ? "gone" : "unknown";
}

Array withFolderStates(Array sharePoints) {
  for (Value& value : sharePoints) {
    if (value.dictionary() == nullptr) continue;
    if (isUnfinished(*value.dictionary())) {
      value.dictionary()->set("unfinished", true);
      continue;
    }
    std::string state = folderState(*value.dictionary());
    if (!state.empty()) value.dictionary()->set("folder", std::move(state));
  }
  return sharePoints;
}

// "exportLines" of a share point that is to be shown, where the exports file has several for it.
void addExportLines(const Session& session, Dictionary& sharePoint) {
  const std::string* path = sharePoint.string("path");
  if (path == nullptr) return;
  try {
    const auto lines = exportLines(session, *path);
    if (!lines || lines->size() < 2) return;
    Array texts;
    for (const ExportLine& line : *lines) texts.emplace_back(line.text);
    sharePoint.set("exportLines", std::move(texts));
  } catch (const Failure& failed) {
    session.notes << "keelhouse: note: " << printableLines(failed.what()) << '\n';
  }
}

// Writing a share point without any name removes the export line of its folder.
void writeWithoutExport(const Session& session, const std::string& path) {
  writeSharePoint(session, path,
                  {{"path", path},
                   {"name", lastComponent(path)},
                   {protocol::kNfsExportRecord, Dictionary{{protocol::kIsDeleted, true}}}},
                  "the NFS export of " + printable(path) +
                      ", which is not shared, cannot be taken "
                      "out of /etc/exports");
}

// Throws Failure for a folder that is not shared, unless the managed block of the exports file
// still has a line for it: what a removal left that could not write the file. The share point that
// takes it away is removed itself next.
void beginLeftRemoval(const Session& session, const std::string& path) {
  const auto lines = exportLines(session, path);
  if (!lines || lines->empty())
    throw notSharedHere(session, path, "See what is: keelhouse share list");
  writeWithoutExport(session, path);
}

// Ends the sharing of a folder that is still shared as it was read.
Dictionary writeRemoval(const Session& session, const std::string& path,
                        std::optional<TaggedReply> reading, const Array& credentials) {
  const auto decide = [&path](const Dictionary& read) -> Dictionary {
    if (!isShared(sharePointIn(read, path))) {
      throw notShared(path, "It was moved or taken out of sharing meanwhile.");
    }
    return {{protocol::kSharePointRecord, Dictionary{{protocol::kIsShared, false}}}};
  };
  const ChangedFolder changed =
      changeFolder(session, path, decide, printable(path) + " cannot be taken out of sharing",
                   std::move(reading), credentials);
  return settingsPart(changed.after, protocol::kSharePointRecord);
}

}  // namespace

ExitStatus listShares(const Session& session) {
  const Dictionary reply = session.daemon.call(kPlugin, "getSharePointList", {});
  requireStatus(reply, protocol::kReadStatus, "the share points cannot be listed");
  const Array* list = reply.array(protocol::kSharePointList);
  const Array sharePoints = withFolderStates(list != nullptr ? *list : Array{});
  if (session.json) {
    session.out << wire::writeJsonPretty(Value(sharePoints)) << '\n';
  } else if (sharePoints.empty()) {
    session.out << "No folder is shared.\n";
  } else {
    session.out << formatShareTable(sharePoints);
  }
  if (!sharePoints.empty()) noteUnreadExports(session);
  return ExitStatus::done;
}

ExitStatus showShare(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  Dictionary sharePoint = readSharePoint(session, path);
  if (!isShared(sharePoint))
    throw notSharedHere(session, path, "Share it with: keelhouse share add PATH");
  addSmbOptions(session, sharePoint);
  addExportLines(session, sharePoint);
  print(session, sharePoint);
  return ExitStatus::done;
}

ExitStatus addShare(const Session& session, const std::string& typedPath, const ShareChanges& typed,
                    const NodeAccount& account, bool force, const ShareSources& sources) {
  const std::string path = absolutePath(typedPath);
  const ShareChanges changes = ChangeSource(typed, sources.from).seenFrom({});
  const Dictionary record = newShareRecord(path, changes);
  if (!force) requireFolder(path);
  std::optional<TaggedReply> reading = readTaggedFolder(session, path);
  requireSameFolder(sharePointIn(reading->body, path), path);
  requireNotShared(sharePointIn(reading->body, path), path);
  const std::optional<Team> team =
      sources.team ? std::optional(findTeam(session, *sources.team)) : std::nullopt;
  const std::string action = printable(path) + " cannot be shared";
  requireServable(session, action, record, !changes.smbName);
  const AutomountChange automount(session, path, planAutomount(changes, {}, false), account);
  if (team) {
    giveToTeam(session, path, *team);
    reading.reset();
  }
  const Dictionary reply = writeNewShare(
      session, {path, record, action, automount.credentials(), reading}, changes.smbOptions);
  return showWritten(session, path, record, reply, automount, changes.requireServed);
}

ExitStatus setShare(const Session& session, const std::string& typedPath, const ShareChanges& typed,
                    const NodeAccount& account, const std::optional<std::string>& from) {
  const bool accountGiven = !account.name.empty();
  if (typed.empty() && !accountGiven && !from) {
    throw usageFailure("share set: no option says what to change");
  }
  const std::string path = folderPath(session, typedPath);
  TaggedReply reading = readTaggedFolder(session, path);
  Dictionary stored = sharePointIn(reading.body, path);
  requireSameFolder(stored, path);
  if (!isShared(stored))
    throw notSharedHere(session, path, "Share it with: keelhouse share add PATH");
  if (from) addSmbOptions(session, stored);
  const ChangeSource source(typed, from);
  const ShareChanges changes = source.seenFrom(stored);
  Dictionary record = changedShareRecord(path, changes, stored);
  AutomountPlan plan = planAutomount(changes, stored, accountGiven);
  if (changes.empty() && !from && plan.step == AutomountPlan::Step::none) {
    throw failure(printable(path) + " is not automounted, so there is nothing to write as " +
                  printable(account.name));
  }
  const std::string action = "the share point of " + printable(path) + " cannot be changed";
  if (!isNamedSo(stored, changes.name)) {
    ShareChanges name;
    name.name = changes.name;
    requireFreeNames(session, storedPath(stored, path), name);
  }
  requireServable(session, action, record, false);
  requireOneExportLine(session, storedPath(stored, path), action,
                       record.contains(protocol::kNfsExportRecord));
  const AutomountChange automount(session, storedPath(stored, path), std::move(plan), account);
  const auto write = [&]() -> Dictionary {
    try {
      return changeFolder(
                 session, path,
                 [&](const Dictionary& read) {
                   record = recordFor(source, stored, sharePointIn(read, path), path);
                   return Dictionary{{protocol::kSharePointRecord, record}};
                 },
                 action, std::move(reading), automount.credentials())
          .after;
    } catch (const Refusal&) {
      throw;
    } catch (const Failure& failed) {
      const auto partly = sharedWithoutExport(session, path, record, failed);
      throw partly ? *partly : partlyChanged(session, path, record, stored, failed);
    }
  };
  const Dictionary reply = writeChangedShare(session, changes.smbOptions, stored, write);
  return showWritten(session, path, record, reply, automount, changes.requireServed);
}

ExitStatus removeShare(const Session& session, const std::string& typedPath,
                       const NodeAccount& account) {
  const std::string path = folderPath(session, typedPath);
  std::optional<TaggedReply> reading = readTaggedFolder(session, path);
  const Dictionary stored = sharePointIn(reading->body, path);
  requireSameFolder(stored, path);
  if (!isShared(stored)) {
    beginLeftRemoval(session, path);
    reading.reset();
  }
  const AutomountChange automount(session, storedPath(stored, path), planAutomountRemoval(stored),
                                  account);
  const Dictionary result =
      writeRemoval(session, path, std::move(reading), automount.credentials());
  if (isShared(result)) {
    throw daemonFailure(printable(path) + " is still shared");
  }
  const DaemonClient::Aside aside(session.daemon);
  const std::string done = printable(path) + " is no longer shared";
  requireNotExported(session, storedPath(stored, path), done,
                     "keelhouse share remove " + shellWord(path));
  if (session.json) {
    print(session, result);
  } else {
    session.out << done << ".\n";
  }
  reportStillServed(session, storedPath(stored, path));
  automount.check(result);
  return ExitStatus::done;
}

void takeOutLeftExport(const Session& session, const std::string& path) {
  writeWithoutExport(session, path);
  writeRemoval(session, path, {}, {});
}

ExitStatus removeUnfinished(const Session& session, const std::string& name) {
  using Outcome = RecordDeletion::Outcome;
  const RecordDeletion deletion = deleteUnfinished(session, name);
  switch (deletion.outcome) {
    case Outcome::missing:
      throw failure("no share point's record is named " + printable(name) +
                    "\nSee what is: keelhouse share list");
    case Outcome::finished:
      throw failure(printable(name) + " is the share of " + printable(deletion.path) +
                    ", and finished\nRemove it by its path: keelhouse share remove " +
                    printable(shellWord(deletion.path)));
    case Outcome::changed:
      throw failure("the record " + printable(name) +
                    " cannot be removed: somebody changed it meanwhile\nNothing was changed.");
    case Outcome::deleted:
      break;
  }
  if (session.json) {
    print(session, {{"name", name}, {protocol::kIsShared, false}});
  } else {
    session.out << "The unfinished record " << printable(name) << " is removed.\n";
  }
  return ExitStatus::done;
}

}  // namespace paddock::keelhouse
