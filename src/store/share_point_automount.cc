#include "store/share_point_automount.h"

#include <string>

#include "store/automount_record.h"
#include "store/directory_nodes.h"

namespace paddock {

namespace {

struct Administrator {
  std::string name;
  std::string password;
};

std::string textOr(const std::string* text) { return text != nullptr ? *text : std::string(); }

// Without credentials for the node: nobody, whom every node refuses.
Administrator administratorOf(const std::string& nodePath, const Array& credentials) {
  const Dictionary* found = get_ds_credentials_for_node_path(credentials, nodePath);
  if (found == nullptr) return {};
  return {textOr(found->string("adminUserName")), textOr(found->string("adminPassword"))};
}

}  // namespace

void write_automount(const SharePointRecord& sharePoint, const Array& credentials) {
  const std::string node = sharePoint.automountDSPath().value_or("");
  const Administrator administrator = administratorOf(node, credentials);
  (void)set_automount_record(
      sharePoint.identifier(), node, sharePoint.automountMountPath().value_or(""),
      std::to_string(sharePoint.automountFileSystemType()), administrator.name,
      administrator.password, sharePoint.nameOverVSP().value_or(""));
}

void delete_automount(const SharePointRecord& sharePoint, const Array& credentials) {
  if (!sharePoint.automountDSPath()) return;
  const std::string& node = *sharePoint.automountDSPath();
  const Administrator administrator = administratorOf(node, credentials);
  (void)delete_automount_record(sharePoint.identifier(), node, administrator.name,
                                administrator.password);
}

}  // namespace paddock
