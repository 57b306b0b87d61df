#include "keelhouse/share/share_document.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/json_document.h"
#include "keelhouse/share/nfs_exports.h"
#include "protocol/keys.h"
#include "samba/smb_options.h"

namespace paddock::keelhouse {

namespace {

const std::string kWhat = "the document";

const std::vector<std::string> kKeys{"path",
                                     "name",
                                     protocol::kNameOverVSP,
                                     protocol::kNameOverSMB,
                                     protocol::kNameOverFTP,
                                     protocol::kIsSharedOverVSP,
                                     protocol::kIsBackstowBackup,
                                     protocol::kBackstowBackupUUID,
                                     protocol::kIsAutomounted,
                                     protocol::kAutomountMountPath,
                                     protocol::kAutomountFileSystemType,
                                     protocol::kAutomountDSPath,
                                     protocol::kIsIndexingEnabled,
                                     protocol::kMountedOnPath,
                                     protocol::kNfsExportRecord,
                                     protocol::kIsShared,
                                     "smb",
                                     "folder",
                                     "exportLines",
                                     "log"};
const std::vector<std::string> kExportKeys{"path", "clients", "line", protocol::kIsDeleted};
const std::vector<std::string> kClientKeys{"host", "options"};
const std::vector<std::string> kSmbKeys{"readOnly", "guest",      "hidden", "recycle",
                                        "comment",  "allowHosts", "options"};

std::string text(const Dictionary& dictionary, const char* key) {
  const std::string* found = textIn(dictionary, key, kWhat);
  return found != nullptr ? *found : std::string();
}

bool boolean(const Dictionary& dictionary, const char* key) {
  const bool* found = booleanIn(dictionary, key, kWhat);
  return found != nullptr && *found;
}

bool storedBoolean(const Dictionary& stored, const char* key) {
  return stored.boolean(key).value_or(false);
}

void setIfOther(std::optional<std::string>& change, const std::string& wanted,
                const Dictionary& stored, const char* key) {
  const std::string* present = stored.string(key);
  if (!wanted.empty() && (present == nullptr || *present != wanted)) change = wanted;
}

// SMB and FTP publish what has a name.
void readPublication(const Dictionary& document, const Dictionary& stored, const char* key,
                     std::optional<std::string>& name, std::optional<bool>& published) {
  const std::string wanted = text(document, key);
  setIfOther(name, wanted, stored, key);
  const std::string* present = stored.string(key);
  const bool isPublished = present != nullptr && !present->empty();
  if (wanted.empty() && (stored.empty() || isPublished)) published = false;
}

std::vector<std::string> clientsIn(const Dictionary& exported) {
  std::vector<std::string> clients;
  const Array* array = arrayIn(exported, "clients", "\"nfsExportRecord\"");
  if (array == nullptr) return clients;
  for (const Value& value : *array) {
    const std::string what = "client " + std::to_string(clients.size() + 1);
    const Dictionary* client = value.dictionary();
    if (client == nullptr) throw usageFailure(what + " of \"nfsExportRecord\" is no JSON object");
    requireKnownKeys(*client, kClientKeys, what);
    if (textIn(*client, "host", what) == nullptr) throw usageFailure(what + " has no \"host\"");
    (void)textsIn(*client, "options", what);
    clients.push_back(formatNfsClient(*client));
  }
  return clients;
}

std::vector<std::string> storedClients(const Dictionary* exported) {
  return exported != nullptr && !exported->contains("line") ? clientsIn(*exported)
                                                            : std::vector<std::string>();
}

void readExport(const Dictionary& document, const Dictionary& stored, ShareChanges& changes) {
  const Dictionary* present = stored.dictionary(protocol::kNfsExportRecord);
  const Value* value = document.find(protocol::kNfsExportRecord);
  if (value == nullptr) {
    changes.noNfs = present != nullptr;
    return;
  }
  const Dictionary* wanted = value->dictionary();
  if (wanted == nullptr) throw usageFailure("\"nfsExportRecord\" is no JSON object");
  requireKnownKeys(*wanted, kExportKeys, "\"nfsExportRecord\"");
  if (present != nullptr && *present == *wanted) return;
  if (wanted->contains("line")) {
    throw usageFailure(
        "\"line\" of \"nfsExportRecord\" is a line that could not be taken apart, and is written "
        "by "
        "hand alone\nName the clients instead: \"clients\"");
  }
  const std::vector<std::string> clients = clientsIn(*wanted);
  if (clients.empty()) throw usageFailure("\"nfsExportRecord\" has no \"clients\"");
  if (clients != storedClients(present)) changes.nfsClients = clients;
}

void readAutomount(const Dictionary& document, const Dictionary& stored, ShareChanges& changes) {
  constexpr const char* kType = protocol::kAutomountFileSystemType;
  if (!boolean(document, protocol::kIsAutomounted)) {
    changes.noAutomount = storedBoolean(stored, protocol::kIsAutomounted);
    return;
  }
  const std::string path = text(document, protocol::kAutomountMountPath);
  const std::string node = text(document, protocol::kAutomountDSPath);
  const Value* type = document.find(kType);
  if (type != nullptr && type->integer() == nullptr) {
    throw usageFailure("\"automountFileSystemType\" must be 0 (VSP) or 1 (NFS)");
  }
  const std::int64_t overNfs = type != nullptr ? *type->integer() : 0;
  const bool same = storedBoolean(stored, protocol::kIsAutomounted) &&
                    text(stored, protocol::kAutomountMountPath) == path &&
                    text(stored, protocol::kAutomountDSPath) == node &&
                    stored.integer(kType).value_or(0) == overNfs;
  if (same) return;
  changes.automountPath = path;
  changes.automountNode = node;
  changes.automountOverNfs = overNfs != 0;
}

samba::SmbOptions smbOptionsIn(const Dictionary& share) {
  const Value* value = share.find("smb");
  if (value == nullptr) return {};
  if (value->dictionary() == nullptr) throw usageFailure("\"smb\" is no JSON object");
  requireKnownKeys(*value->dictionary(), kSmbKeys, "\"smb\"");
  samba::ReadOptions read = samba::optionsFromDictionary(*value->dictionary());
  if (!read.fault.empty()) throw usageFailure("\"smb\": " + read.fault);
  return std::move(read.options);
}

void setIfOther(std::optional<bool>& change, bool wanted, bool stored) {
  if (wanted != stored) change = wanted;
}

void readSmb(const Dictionary& document, const Dictionary& stored, SmbChanges& changes) {
  const samba::SmbOptions wanted = smbOptionsIn(document);
  const samba::SmbOptions present = smbOptionsIn(stored);
  setIfOther(changes.readOnly, wanted.readOnly, present.readOnly);
  setIfOther(changes.guest, wanted.guest, present.guest);
  setIfOther(changes.hidden, wanted.hidden, present.hidden);
  setIfOther(changes.recycle, wanted.recycle, present.recycle);
  if (wanted.comment != present.comment) changes.comment = wanted.comment;
  if (wanted.allowHosts != present.allowHosts) {
    changes.allowHosts.emplace();
    for (const std::string& host : wanted.allowHosts) *changes.allowHosts += host + " ";
  }
  const auto& before = present.parameters;
  for (const samba::Parameter& parameter : wanted.parameters) {
    if (std::find(before.begin(), before.end(), parameter) != before.end()) continue;
    changes.options.push_back(parameter.key + " = " + parameter.value);
  }
  for (const samba::Parameter& parameter : before) {
    const bool stays = std::any_of(wanted.parameters.begin(), wanted.parameters.end(),
                                   [&](const auto& one) { return one.key == parameter.key; });
    if (!stays) changes.noOptions.push_back(parameter.key);
  }
}

}  // namespace

ShareChanges changesFrom(const Dictionary& document, const Dictionary& stored) {
  requireKnownKeys(document, kKeys, kWhat);
  // Absent keys are removed, so that a document of another kind must not be accepted.
  if (text(document, "path").empty()) {
    throw usageFailure(
        "the document has no \"path\", and is none that keelhouse share show --json "
        "prints\nNothing was changed.");
  }
  const bool* isShared = booleanIn(document, protocol::kIsShared, kWhat);
  if (isShared != nullptr && !*isShared) {
    throw usageFailure("the document is of a folder that is not shared");
  }
  ShareChanges changes;
  setIfOther(changes.name, text(document, "name"), stored, "name");
  setIfOther(changes.vspName, text(document, protocol::kNameOverVSP), stored,
             protocol::kNameOverVSP);
  const bool vsp = boolean(document, protocol::kIsSharedOverVSP);
  if (stored.empty() || vsp != storedBoolean(stored, protocol::kIsSharedOverVSP)) changes.vsp = vsp;
  readPublication(document, stored, protocol::kNameOverSMB, changes.smbName, changes.smb);
  readPublication(document, stored, protocol::kNameOverFTP, changes.ftpName, changes.ftp);
  readExport(document, stored, changes);
  readAutomount(document, stored, changes);
  readSmb(document, stored, changes.smbOptions);
  const bool backup = boolean(document, protocol::kIsBackstowBackup);
  if (backup != storedBoolean(stored, protocol::kIsBackstowBackup)) changes.backup = backup;
  const bool* indexed = booleanIn(document, protocol::kIsIndexingEnabled, kWhat);
  if (indexed != nullptr && *indexed != storedBoolean(stored, protocol::kIsIndexingEnabled)) {
    changes.indexed = *indexed;
  }
  return changes;
}

}  // namespace paddock::keelhouse
