#include "keelhouse/begun_share.h"

#include <algorithm>
#include <exception>
#include <set>

#include "base/printable.h"
#include "keelhouse/export_lines.h"
#include "keelhouse/folder_settings.h"
#include "keelhouse/nfs_client.h"
#include "keelhouse/share_names.h"
#include "keelhouse/shell_word.h"
#include "keelhouse/sibling_plugins.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kDirectory = "paddock_directory";
constexpr const char* kSharePoints = "dsRecTypeStandard:SharePoints";
constexpr const char* kExport = "nfsExportRecord";
constexpr const char* kDirectoryPath = "dsAttrTypeNative:directory_path";

// Whether the record was there without a path, and is gone.
bool deleteUnlessFinished(const Session& session, const std::string& name) {
  const Dictionary request{{"type", kSharePoints}, {"name", name}};
  const auto read = session.daemon.callTagged(kDirectory, "getRecord", request);
  const Dictionary* record = read ? read->body.dictionary("record") : nullptr;
  if (record == nullptr || record->contains(kDirectoryPath)) return false;
  const auto reply = session.daemon.callTagged(kDirectory, "deleteRecord", request, read->tag);
  return reply && reply->body.integer("status") == 0;
}

bool isStored(const std::string& key, const Value& wanted, const Dictionary& present) {
  const Value* found = present.find(key);
  if (found == nullptr) return false;
  if (*found == wanted) return true;
  const std::string* name = wanted.string();
  return name != nullptr && found->string() != nullptr && isNumberedName(*name, *found->string());
}

const Array* clientsOf(const Dictionary& record) {
  const Dictionary* exported = record.dictionary(kExport);
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

// Whether the export of the share point that was read back has all clients that `wanted` has.
bool isExportedTo(const Dictionary& stored, const Array& wanted) {
  const Array* clients = clientsOf(stored);
  return clients != nullptr &&
         std::all_of(wanted.begin(), wanted.end(), [clients](const Value& client) {
           return client.dictionary() == nullptr || hasClient(*clients, *client.dictionary());
         });
}

// Whether everything of `record` is stored but its export.
bool isStoredWithoutExport(const Dictionary& record, const Dictionary& present) {
  if (!isShared(present)) return false;
  for (const auto& [key, value] : record) {
    if (key != kExport && !isStored(key, value, present)) return false;
  }
  return !isExportedTo(present, *clientsOf(record));
}

std::string exportCommand(const std::string& path, const Array& clients) {
  std::string command = "keelhouse share set " + shellWord(path);
  for (const Value& client : clients) {
    if (client.dictionary() == nullptr) continue;
    command += " --nfs " + shellWord(formatNfsClient(*client.dictionary()));
  }
  return command;
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
          return {{"sharePointRecord", Dictionary{{"isShared", false}}}};
        },
        printable(path_) + " cannot be taken out of sharing", {}, credentials_);
  } catch (const std::exception&) {
    session_.notes << "keelhouse: note: " << printable(path_)
                   << " may be shared in part: see keelhouse share show\n";
  }
}

std::vector<std::string> unfinishedRecords(const Session& session, const std::string& name) {
  std::vector<std::string> records;
  const auto reply = askIfLoaded(session, "paddock_services", "checkShare", {});
  const Array* unfinished = reply ? reply->array("unfinished") : nullptr;
  if (unfinished == nullptr) return records;
  for (const Value& value : *unfinished) {
    const std::string* record = value.string();
    if (record == nullptr || (*record != name && !isNumberedName(name, *record))) continue;
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
      if (!deleteUnlessFinished(session, record)) continue;
      session.notes << "keelhouse: note: the record " << printable(record)
                    << ", which was begun without its settings, is deleted again\n";
    }
  } catch (const Failure&) {
    session.notes << "keelhouse: note: an unfinished record " << printable(name)
                  << " may be left: see keelhouse share list\n";
  }
}

Failure withWhatWasDone(const Session& session, const std::string& path, const Dictionary& record,
                        const Failure& failed) {
  const Array* clients = clientsOf(record);
  if (clients == nullptr || failed.origin() != ReportedBy::daemon) return failed;
  const DaemonClient::Aside aside(session.daemon);
  try {
    if (!isStoredWithoutExport(record, readSharePoint(session, path))) return failed;
    return {
        failed.status(),
        std::string(failed.what()) + "\n" + path +
            " is shared as asked but for its NFS export, which was not written.\nFinish it with: " +
            exportCommand(path, *clients),
        failed.origin()};
  } catch (const Failure&) {
    return failed;
  }
}

void requireExported(const Session& session, const std::string& path, const Dictionary& record,
                     const Dictionary& stored) {
  const Dictionary* exported = record.dictionary(kExport);
  if (exported == nullptr) return;
  if (exported->boolean("isDeleted").value_or(false)) return requireNotExported(session, path);
  const Array* wanted = clientsOf(record);
  if (wanted == nullptr || isExportedTo(stored, *wanted)) return;
  throw daemonFailure(printable(path) + " is shared, but its NFS export was not written\n" +
                      "Finish it with: " + exportCommand(path, *wanted));
}

void requireNotExported(const Session& session, const std::string& path) {
  for (const ExportLine& line : exportLines(session, path)) {
    throw daemonFailure(
        "the NFS export of " + printable(path) +
        " could not be taken out of /etc/exports, which still has: " + printable(line.text) +
        "\nIt leaves the file with the next change that can be written.");
  }
}

}  // namespace paddock::keelhouse
