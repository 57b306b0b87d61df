#include "keelhouse/share/share_changes.h"

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/share_path.h"
#include "keelhouse/share/nfs_client.h"
#include "keelhouse/share/share_automount.h"
#include "keelhouse/share/share_names.h"

namespace paddock::keelhouse {

namespace {

// The name that a protocol gets when none was given: that of `stored`, or the folder's.
std::string defaultName(const std::string& path, const Dictionary& stored, const char* key) {
  const std::string* earlier = stored.string(key);
  if (earlier != nullptr && !earlier->empty()) return *earlier;
  std::string name = lastComponent(path);
  if (name.empty()) throw usageFailure("\"/\" has no name of its own: give the names by options");
  return name;
}

std::string defaultVspName(const std::string& path, const Dictionary& stored) {
  return std::string(utf8Prefix(defaultName(path, stored, "nameOverVSP"), kMaximumVspNameLength));
}

// SMB and FTP publish what has a name.
void setPublishedName(Dictionary& record, const std::string& path, const Dictionary& stored,
                      const char* key, const std::optional<std::string>& name,
                      std::optional<bool> published) {
  if (name) {
    record.set(key, *name);
  } else if (published) {
    record.set(key, *published ? defaultName(path, stored, key) : "");
  }
}

void setExport(Dictionary& record, const ShareChanges& changes) {
  if (changes.noNfs) record.set("nfsExportRecord", Dictionary{{"isDeleted", true}});
  Array clients;
  for (const std::string& client : changes.nfsClients) {
    if (!client.empty()) clients.push_back(parseNfsClient(client));
  }
  if (clients.empty()) return;
  record.set("nfsExportRecord", Dictionary{{"clients", std::move(clients)}});
}

// What new and changed share points have in common.
void setOthers(Dictionary& record, const ShareChanges& changes, const Dictionary& stored) {
  setExport(record, changes);
  setAutomount(record, changes, stored);
  if (changes.backup) record.set("isBackstowBackup", *changes.backup);
  if (changes.indexed) record.set("isIndexingEnabled", *changes.indexed);
}

}  // namespace

bool ShareChanges::empty() const {
  return !name && !vspName && !smbName && !ftpName && !vsp && !smb && !ftp && nfsClients.empty() &&
         !noNfs && !automountPath && !automountNode && !noAutomount && !backup && !indexed &&
         smbOptions.empty();
}

Dictionary newShareRecord(const std::string& path, const ShareChanges& changes) {
  checkShareNames(changes);
  const Dictionary nothing;
  Dictionary record{{"path", path}};
  record.set("name", changes.name ? *changes.name : defaultName(path, nothing, "name"));
  record.set("nameOverVSP", changes.vspName ? *changes.vspName : defaultVspName(path, nothing));
  record.set("isSharedOverVSP", changes.vsp.value_or(true));
  if (changes.smb.value_or(true)) {
    setPublishedName(record, path, nothing, "nameOverSMB", changes.smbName, true);
  }
  if (changes.ftp.value_or(true)) {
    setPublishedName(record, path, nothing, "nameOverFTP", changes.ftpName, true);
  }
  setOthers(record, changes, nothing);
  return record;
}

Dictionary changedShareRecord(const std::string& path, const ShareChanges& changes,
                              const Dictionary& stored) {
  checkShareNames(changes);
  // The stored path may differ from the given one by letter case, and stays as it is.
  const std::string* storedPath = stored.string("path");
  Dictionary record{{"path", storedPath != nullptr ? *storedPath : path}};
  if (changes.name) record.set("name", *changes.name);
  if (changes.vsp) record.set("isSharedOverVSP", *changes.vsp);
  if (changes.vspName) {
    record.set("nameOverVSP", *changes.vspName);
  } else if (changes.vsp.value_or(false)) {
    record.set("nameOverVSP", defaultVspName(path, stored));
  }
  setPublishedName(record, path, stored, "nameOverSMB", changes.smbName, changes.smb);
  setPublishedName(record, path, stored, "nameOverFTP", changes.ftpName, changes.ftp);
  setOthers(record, changes, stored);
  return record;
}

}  // namespace paddock::keelhouse
