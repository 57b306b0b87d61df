#include "store/share_point_automount.h"

#include <string>

#include "base/status.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "store/automount_record.h"
#include "store/directory_nodes.h"
#include "store/exception_text.h"

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

void logFailure(const SharePointRecord& sharePoint, const char* what, const std::string& reason) {
  services().logger->log(kLogError, "paddock_sharing: The automount of the " +
                                        sharePoint.description() + " " + what + " the node " +
                                        sharePoint.automountDSPath().value_or("") + ": " + reason);
}

}  // namespace

void write_automount(const SharePointRecord& sharePoint, const Array& credentials) {
  const std::string node = sharePoint.automountDSPath().value_or("");
  const Administrator administrator = administratorOf(node, credentials);
  try {
    (void)set_automount_record(
        sharePoint.identifier(), node, sharePoint.automountMountPath().value_or(""),
        std::to_string(sharePoint.automountFileSystemType()), administrator.name,
        administrator.password, sharePoint.nameOverVSP().value_or(""));
  } catch (...) {
    logFailure(sharePoint, "was not written to", reason_of_current_exception());
    throw;
  }
}

void delete_automount(const SharePointRecord& sharePoint, const Array& credentials) {
  if (!sharePoint.automountDSPath()) return;
  const std::string& node = *sharePoint.automountDSPath();
  const Administrator administrator = administratorOf(node, credentials);
  std::string reason;
  const Status status = delete_automount_record(sharePoint.identifier(), node, administrator.name,
                                                administrator.password, &reason);
  if (status == kSuccess) return;
  if (reason.empty()) reason = sharing_error_string(status);
  logFailure(sharePoint, "was not removed from", reason);
}

}  // namespace paddock
