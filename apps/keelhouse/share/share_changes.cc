#include "keelhouse/share/share_changes.h"

#include <algorithm>
#include <string_view>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/share_path.h"
#include "keelhouse/share/nfs_exports.h"
#include "keelhouse/share/share_names.h"
#include "protocol/keys.h"

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
  return std::string(
      utf8Prefix(defaultName(path, stored, protocol::kNameOverVSP), kMaximumVspNameLength));
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
  if (changes.noNfs)
    record.set(protocol::kNfsExportRecord, Dictionary{{protocol::kIsDeleted, true}});
  Array clients;
  for (const std::string& client : changes.nfsClients) {
    if (!client.empty()) clients.push_back(parseNfsClient(client));
  }
  if (clients.empty()) return;
  record.set(protocol::kNfsExportRecord, Dictionary{{"clients", std::move(clients)}});
}

// What new and changed share points have in common.
void setOthers(Dictionary& record, const ShareChanges& changes, const Dictionary& stored) {
  setExport(record, changes);
  setAutomount(record, changes, stored);
  if (changes.backup) record.set(protocol::kIsBackstowBackup, *changes.backup);
  if (changes.indexed) record.set(protocol::kIsIndexingEnabled, *changes.indexed);
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
  record.set(protocol::kNameOverVSP,
             changes.vspName ? *changes.vspName : defaultVspName(path, nothing));
  record.set(protocol::kIsSharedOverVSP, changes.vsp.value_or(true));
  if (changes.smb.value_or(true)) {
    setPublishedName(record, path, nothing, protocol::kNameOverSMB, changes.smbName, true);
  }
  if (changes.ftp.value_or(true)) {
    setPublishedName(record, path, nothing, protocol::kNameOverFTP, changes.ftpName, true);
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
  if (changes.vsp) record.set(protocol::kIsSharedOverVSP, *changes.vsp);
  if (changes.vspName) {
    record.set(protocol::kNameOverVSP, *changes.vspName);
  } else if (changes.vsp.value_or(false)) {
    record.set(protocol::kNameOverVSP, defaultVspName(path, stored));
  }
  setPublishedName(record, path, stored, protocol::kNameOverSMB, changes.smbName, changes.smb);
  setPublishedName(record, path, stored, protocol::kNameOverFTP, changes.ftpName, changes.ftp);
  setOthers(record, changes, stored);
  return record;
}

namespace {

constexpr std::int64_t kOverVsp = 0;
constexpr std::int64_t kOverNfs = 1;

std::string storedNode(const Dictionary& stored) {
  const std::string* node = stored.string(protocol::kAutomountDSPath);
  return node != nullptr ? *node : std::string();
}

std::string nodeOf(const ShareChanges& changes, const Dictionary& stored) {
  std::string node = changes.automountNode.value_or(storedNode(stored));
  if (node.empty()) {
    throw usageFailure("--automount needs --node: the directory node that clients read");
  }
  return node;
}

void checkPath(const std::string& path, const std::string& option) {
  if (!isValidUtf8(path)) throw usageFailure(option + " is not UTF-8");
  if (!path.starts_with('/')) {
    throw usageFailure(option + " \"" + path + "\" is no absolute path");
  }
  if (printable(path) != path) throw usageFailure(option + " holds a control character");
}

bool isAutomounted(const Dictionary& sharePoint) {
  return sharePoint.boolean(protocol::kIsAutomounted).value_or(false);
}

// The record says where clients mount what, and over VSP by which name.
bool changesRecord(const ShareChanges& changes) {
  return changes.automountPath || changes.vspName || changes.vsp.value_or(false);
}

}  // namespace

void setAutomount(Dictionary& record, const ShareChanges& changes, const Dictionary& stored) {
  if (changes.noAutomount) record.set(protocol::kIsAutomounted, false);
  const bool overNfs = changes.automountOverNfs.value_or(!changes.nfsClients.empty());
  const auto& clients = changes.nfsClients;
  if (!changes.automountPath) {
    if (changes.automountNode) throw usageFailure("--node needs --automount");
    if (std::find(clients.begin(), clients.end(), "") != clients.end()) {
      throw usageFailure(
          "--nfs without a CLIENT has clients automount over NFS, and needs --automount\n"
          "To export the folder: --nfs CLIENT or --nfs 'CLIENT(OPTION,OPTION)'");
    }
    return;
  }
  if (!overNfs && changes.vsp && !*changes.vsp) {
    throw usageFailure(
        "--automount is over VSP, which --no-vsp switches off; --nfs has clients "
        "mount over NFS");
  }
  const std::string node = nodeOf(changes, stored);
  checkPath(*changes.automountPath, "--automount");
  checkPath(node, "--node");
  record.set(protocol::kIsAutomounted, true);
  record.set(protocol::kAutomountMountPath, *changes.automountPath);
  record.set(protocol::kAutomountDSPath, node);
  record.set(protocol::kAutomountFileSystemType, overNfs ? kOverNfs : kOverVsp);
}

AutomountPlan planAutomount(const ShareChanges& changes, const Dictionary& stored, bool rewrite) {
  const std::string before = storedNode(stored);
  if (changes.noAutomount) return planAutomountRemoval(stored);
  if (changes.automountPath) {
    const std::string node = nodeOf(changes, stored);
    if (isAutomounted(stored) && !before.empty() && node != before) {
      throw failure("clients automount it by " + before +
                    "\nTake that away first: keelhouse share set PATH --no-automount");
    }
    return {AutomountPlan::Step::write, node};
  }
  if (isAutomounted(stored) && !before.empty() && (rewrite || changesRecord(changes))) {
    return {AutomountPlan::Step::write, before};
  }
  return {};
}

AutomountPlan planAutomountRemoval(const Dictionary& stored) {
  const std::string node = storedNode(stored);
  if (node.empty()) return {};
  return {AutomountPlan::Step::remove, node};
}

}  // namespace paddock::keelhouse
