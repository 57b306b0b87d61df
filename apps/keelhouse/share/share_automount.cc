#include "keelhouse/share/share_automount.h"

#include <algorithm>
#include <string_view>

#include "base/printable.h"
#include "base/text.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

constexpr std::int64_t kOverVsp = 0;
constexpr std::int64_t kOverNfs = 1;

std::string storedNode(const Dictionary& stored) {
  const std::string* node = stored.string("automountDSPath");
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
  return sharePoint.boolean("isAutomounted").value_or(false);
}

// The record says where clients mount what, and over VSP by which name.
bool changesRecord(const ShareChanges& changes) {
  return changes.automountPath || changes.vspName || changes.vsp.value_or(false);
}

}  // namespace

void setAutomount(Dictionary& record, const ShareChanges& changes, const Dictionary& stored) {
  if (changes.noAutomount) record.set("isAutomounted", false);
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
  record.set("isAutomounted", true);
  record.set("automountMountPath", *changes.automountPath);
  record.set("automountDSPath", node);
  record.set("automountFileSystemType", overNfs ? kOverNfs : kOverVsp);
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
