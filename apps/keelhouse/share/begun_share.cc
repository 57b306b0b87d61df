#include "keelhouse/share/begun_share.h"

#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <set>

#include "base/text.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/share/nfs_exports.h"
#include "keelhouse/share/share_names.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kDirectory = "paddock_directory";
constexpr const char* kSharePoints = "dsRecTypeStandard:SharePoints";
constexpr const char* kRecordName = "dsAttrTypeStandard:RecordName";
constexpr const char* kDirectoryPath = "dsAttrTypeNative:directory_path";

// Whether it is the name, or that with a number as the daemon makes a record's name unique: whole.
bool isNameOrNumbered(const std::string& found, const std::string& name) {
  return found == name || (found.starts_with(name + "-") && isNumberedName(name, found));
}

bool isStored(const std::string& key, const Value& wanted, const Dictionary& present) {
  const Value* found = present.find(key);
  if (found == nullptr) return false;
  if (*found == wanted) return true;
  const std::string* name = wanted.string();
  return name != nullptr && found->string() != nullptr && isNumberedName(*name, *found->string());
}

const Array* clientsOf(const Dictionary& record) {
  const Dictionary* exported = record.dictionary(protocol::kNfsExportRecord);
  return exported != nullptr ? exported->array("clients") : nullptr;
}

std::set<std::string> optionsOf(const Dictionary& client) {
  std::set<std::string> options;
  const Array* list = client.array("options");
  for (const Value& option : list != nullptr ? *list : Array{}) {
    if (option.string() != nullptr) options.insert(*option.string());
  }
  return options;
}

bool hasClient(const Array& clients, const Dictionary& wanted) {
  return std::any_of(clients.begin(), clients.end(), [&wanted](const Value& value) {
    const Dictionary* client = value.dictionary();
    return client != nullptr && client->find("host") != nullptr && wanted.find("host") != nullptr &&
           *client->find("host") == *wanted.find("host") && optionsOf(*client) == optionsOf(wanted);
  });
}

// Whether the export of the share point that was read back has all clients that `wanted` has. The
// daemon may report exports that it could not write, so that the file is checked, too.
bool isExportedTo(const Session& session, const std::string& path, const Dictionary& stored,
                  const Array& wanted) {
  const Array* clients = clientsOf(stored);
  const auto isIn = [&wanted](const Array& all) {
    return std::all_of(wanted.begin(), wanted.end(), [&all](const Value& client) {
      return client.dictionary() == nullptr || hasClient(all, *client.dictionary());
    });
  };
  if (clients == nullptr || !isIn(*clients)) return false;
  const auto lines = exportLines(session, path);
  if (!lines) return true;
  Array written;
  for (const ExportLine& line : *lines) {
    written.insert(written.end(), line.clients.begin(), line.clients.end());
  }
  return isIn(written);
}

// Whether everything of `record` is stored but its export.
bool isStoredWithoutExport(const Session& session, const std::string& path,
                           const Dictionary& record, const Dictionary& present) {
  if (!isShared(present)) return false;
  for (const auto& [key, value] : record) {
    if (key != protocol::kNfsExportRecord && !isStored(key, value, present)) return false;
  }
  return !isExportedTo(session, path, present, *clientsOf(record));
}

std::string setCommand(const std::string& path) { return "keelhouse share set " + shellWord(path); }

// The command that completes it, once the cause of the failed write is corrected.
std::string finish(const std::string& path, const Array& clients) {
  std::string command = "When that is mended: " + setCommand(path);
  for (const Value& client : clients) {
    if (client.dictionary() == nullptr) continue;
    command += " --nfs " + shellWord(formatNfsClient(*client.dictionary()));
  }
  return command;
}

bool isDeletedExport(const Value& wanted) {
  return wanted.dictionary() != nullptr &&
         wanted.dictionary()->boolean(protocol::kIsDeleted).value_or(false);
}

// What is absent is false, empty or no export.
bool isThere(const Session& session, const std::string& path, const std::string& key,
             const Value& wanted, const Dictionary& present) {
  const Value* found = present.find(key);
  if (key == protocol::kNfsExportRecord) {
    if (isDeletedExport(wanted)) return found == nullptr;
    const Array* clients =
        wanted.dictionary() != nullptr ? wanted.dictionary()->array("clients") : nullptr;
    return clients == nullptr || isExportedTo(session, path, present, *clients);
  }
  if (found != nullptr) return *found == wanted;
  return wanted == Value(false) || wanted == Value(std::string());
}

// As it is typed.
std::string optionOf(const std::string& key, const Value& wanted) {
  static const std::map<std::string, std::string> kNames{
      {"name", "name"},
      {protocol::kNameOverVSP, "vsp-name"},
      {protocol::kNameOverSMB, "smb-name"},
      {protocol::kNameOverFTP, "ftp-name"},
      {protocol::kAutomountMountPath, "automount"},
      {protocol::kAutomountDSPath, "node"}};
  static const std::map<std::string, std::string> kSwitches{
      {protocol::kIsSharedOverVSP, "vsp"},
      {protocol::kIsBackstowBackup, "backup"},
      {protocol::kIsIndexingEnabled, "index"}};
  if (key == protocol::kNfsExportRecord) {
    if (isDeletedExport(wanted)) return " --no-nfs";
    std::string clients;
    const Array* list =
        wanted.dictionary() != nullptr ? wanted.dictionary()->array("clients") : nullptr;
    for (const Value& client : list != nullptr ? *list : Array{}) {
      if (client.dictionary() == nullptr) continue;
      clients += " --nfs " + shellWord(formatNfsClient(*client.dictionary()));
    }
    return clients;
  }
  if (const auto name = kNames.find(key); name != kNames.end() && wanted.string() != nullptr) {
    if (!wanted.string()->empty()) return " --" + name->second + " " + shellWord(*wanted.string());
    return key == protocol::kNameOverSMB ? " --no-smb" : " --no-ftp";
  }
  if (const auto named = kSwitches.find(key); named != kSwitches.end()) {
    return (wanted == Value(false) ? " --no-" : " --") + named->second;
  }
  return key == protocol::kIsAutomounted && wanted == Value(false) ? " --no-automount" : "";
}

}  // namespace

BegunShare::~BegunShare() {
  if (isFinished_) return;
  const DaemonClient::Aside aside(session_.daemon);
  try {
    changeFolder(
        session_, path_,
        [this](const Dictionary& read) -> Dictionary {
          const Dictionary present = sharePointIn(read, path_);
          const std::string* name = present.string("name");
          if (!isShared(present) || name == nullptr || *name != name_) {
            throw failure("it is another share point by now");
          }
          return {{protocol::kSharePointRecord, Dictionary{{protocol::kIsShared, false}}}};
        },
        printable(path_) + " cannot be taken out of sharing", {}, credentials_);
  } catch (const std::exception&) {
    session_.notes << "keelhouse: note: " << printable(path_)
                   << " may be shared in part: see keelhouse share show\n";
  }
}

RecordDeletion deleteUnfinished(const Session& session, const std::string& name) {
  using Outcome = RecordDeletion::Outcome;
  const std::string action = "the record " + printable(name) + " cannot be removed";
  const Dictionary request{{"type", kSharePoints}, {"name", name}};
  // Without a condition there is always a reply.
  const TaggedReply read = *session.daemon.callTagged(kDirectory, "getRecord", request);
  requireStatus(read.body, "status", action);
  const Dictionary* record = read.body.dictionary("record");
  if (record == nullptr || firstValue(*record, kRecordName) != name) return {Outcome::missing, {}};
  const std::string path = firstValue(*record, kDirectoryPath);
  if (path.starts_with('/')) return {Outcome::finished, path};
  const auto reply = session.daemon.callTagged(kDirectory, "deleteRecord", request, read.tag);
  if (!reply) return {Outcome::changed, {}};
  requireStatus(reply->body, "status", action);
  return {Outcome::deleted, {}};
}

std::vector<std::string> unfinishedRecords(const Session& session, const std::string& name) {
  std::vector<std::string> records;
  const auto reply = askIfLoaded(session, "paddock_services", "checkShare", {});
  const Array* unfinished = reply ? reply->array("unfinished") : nullptr;
  if (unfinished == nullptr) return records;
  for (const Value& value : *unfinished) {
    const std::string* record = value.string();
    if (record == nullptr || !isNameOrNumbered(*record, name)) continue;
    records.push_back(*record);
  }
  return records;
}

void deleteUnfinishedRecords(const Session& session, const std::string& name,
                             const std::vector<std::string>& before) {
  const DaemonClient::Aside aside(session.daemon);
  try {
    for (const std::string& record : unfinishedRecords(session, name)) {
      if (std::find(before.begin(), before.end(), record) != before.end()) continue;
      if (deleteUnfinished(session, record).outcome != RecordDeletion::Outcome::deleted) continue;
      session.notes << "keelhouse: note: the record " << printable(record)
                    << ", which was begun without its settings, is deleted again\n";
    }
  } catch (const Failure&) {
    session.notes << "keelhouse: note: an unfinished record " << printable(name)
                  << " may be left: see keelhouse share list\n";
  }
}

std::optional<Failure> sharedWithoutExport(const Session& session, const std::string& path,
                                           const Dictionary& record, const Failure& failed) {
  const Array* clients = clientsOf(record);
  if (clients == nullptr || failed.origin() != ReportedBy::daemon) return std::nullopt;
  const DaemonClient::Aside aside(session.daemon);
  try {
    if (!isStoredWithoutExport(session, path, record, readSharePoint(session, path))) {
      return std::nullopt;
    }
    // What was refused is what was asked for: the same command again would be refused, too.
    return failed
        .withMore(printable(path) +
                  " is shared as asked but for its NFS export, which was not written.\n"
                  "To finish it, with clients that can stand there (exports(5)): " +
                  setCommand(path) + " --nfs CLIENT")
        .withGuess({});
  } catch (const Failure&) {
    return std::nullopt;
  }
}

Failure partlyChanged(const Session& session, const std::string& path, const Dictionary& record,
                      const Dictionary& before, const Failure& failed) {
  if (failed.origin() != ReportedBy::daemon || record.size() < 2) return failed;
  const DaemonClient::Aside aside(session.daemon);
  std::string done;
  std::string missing;
  try {
    const Dictionary present = readSharePoint(session, path);
    if (present == before) return failed;
    for (const auto& [key, wanted] : record) {
      if (key == "path") continue;
      const bool isDone = isThere(session, path, key, wanted, present);
      const Value* old = before.find(key);
      const Value* now = present.find(key);
      const bool isSame = old != nullptr && now != nullptr ? *old == *now : old == now;
      if (!isDone) missing += optionOf(key, wanted);
      if (isDone && !isSame) done += optionOf(key, wanted);
    }
  } catch (const Failure&) {
    return failed;
  }
  if (done.empty()) return failed;
  const std::string all = "Of what was asked this is done nevertheless:" + done;
  if (missing.empty()) return failed.withMore(all).withGuess({});
  return failed.withMore(all + "\nThis is not:" + missing +
                         "\nWhen that is mended: " + setCommand(path) + missing);
}

void requireExported(const Session& session, const std::string& path, const Dictionary& record,
                     const Dictionary& stored) {
  const Dictionary* exported = record.dictionary(protocol::kNfsExportRecord);
  if (exported == nullptr) return;
  if (exported->boolean(protocol::kIsDeleted).value_or(false))
    return requireNotExported(session, path, printable(path) + " is shared as asked",
                              setCommand(path) + " --no-nfs");
  const Array* wanted = clientsOf(record);
  if (wanted == nullptr || isExportedTo(session, path, stored, *wanted)) return;
  throw daemonFailure(printable(path) + " is shared, but its NFS export was not written\n" +
                      finish(path, *wanted));
}

void requireNotExported(const Session& session, const std::string& path, const std::string& done,
                        const std::string& command) {
  const std::string finishing = "\nWhen that is mended: " + command;
  std::optional<std::vector<ExportLine>> lines;
  try {
    lines = exportLines(session, path);
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
    throw Failure(failed.status(), done + ", but " + failed.what() + finishing, failed.origin());
  }
  if (!lines || lines->empty()) return;
  throw daemonFailure(done +
                      ", but its NFS export could not be taken out of /etc/exports, which "
                      "still has: " +
                      printable(lines->front().text) + finishing);
}

}  // namespace paddock::keelhouse
