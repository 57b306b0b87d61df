#include "store/share_point_automount.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/status.h"
#include "platform/directory.h"
#include "platform/logger.h"
#include "platform/machine_information.h"
#include "platform/services.h"
#include "protocol/keys.h"
#include "store/directory_access.h"
#include "store/directory_nodes.h"

namespace paddock {

namespace {

constexpr const char* kVspType = "0";
constexpr const char* kServersFolder = "/Network/Servers/";
constexpr const char* kUrlOption = "url==vsp://;AUTH=NO%20USER%20AUTHENT@";

// RFC 2396: what a URL may hold as it is, its reserved characters included.
constexpr std::string_view kUrlCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.!~*'();/?:@&=+$,";

std::string percentEncoded(const std::string& text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char character : text) {
    if (kUrlCharacters.find(character) != std::string_view::npos) {
      encoded += character;
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    encoded.append({'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]});
  }
  return encoded;
}

// Null when the administrator is refused; a node that nothing names refuses everybody.
std::shared_ptr<DirectoryNode> openNode(const std::string& nodePath, const std::string& adminName,
                                        const std::string& adminPassword) {
  if (nodePath.empty()) return nullptr;
  auto node = services().directory->openLocal()->findNode(nodePath);
  constexpr bool kAuthOnly = false;
  return node->authenticateName(adminName, adminPassword, kAuthOnly) == kSuccess ? node : nullptr;
}

std::optional<std::string> readHostName() {
  std::string name;
  return services().hostName->gethostname(name) == 0 ? std::optional(name) : std::nullopt;
}

void fillRecord(DirectoryRecord& record, const std::string& mountPath,
                const std::optional<std::string>& urlOption) {
  record.setAttribute(schema::kVfsLinkDir, mountPath);
  record.setAttribute(schema::kVfsType, std::string(urlOption ? "url" : "nfs"));
  Array options;
  if (mountPath == kServersFolder) options.emplace_back("net");
  if (urlOption) options.emplace_back(*urlOption);
  if (options.empty()) {
    record.removeAttribute(schema::kVfsOpts);
  } else {
    record.setAttribute(schema::kVfsOpts, options);
  }
}

}  // namespace

Status set_automount_record(const std::string& path, const std::string& nodePath,
                            const std::string& mountPath, const std::string& fileSystemType,
                            const std::string& adminName, const std::string& adminPassword,
                            const std::string& shareName) {
  const auto node = openNode(nodePath, adminName, adminPassword);
  // Deliberate: a refusal is not reported, so that the share point itself is still written.
  if (node == nullptr) return kSuccess;
  const auto host = readHostName();
  if (!host) return kSuccess;
  DirectoryRecordPtr record;
  const Status status =
      get_ds_record_by_name(*host + ":" + path, schema::kMounts, true, record, *node);
  if (status != kSuccess || record == nullptr) return kSuccess;
  std::optional<std::string> urlOption;
  if (fileSystemType == kVspType) urlOption = kUrlOption + *host + "/" + percentEncoded(shareName);
  fillRecord(*record, mountPath, urlOption);
  return kSuccess;
}

Status delete_automount_record(const std::string& path, const std::string& nodePath,
                               const std::string& adminName, const std::string& adminPassword,
                               std::string* reason) {
  try {
    const auto node = openNode(nodePath, adminName, adminPassword);
    if (node == nullptr) return kSuccess;
    const auto host = readHostName();
    if (host) return delete_ds_record_by_name(*host + ":" + path, schema::kMounts, *node, reason);
    if (reason != nullptr) *reason = "the host's name cannot be read";
  } catch (...) {
    if (reason != nullptr) *reason = reason_of_current_exception();
  }
  return CANNOT_DELETE_AUTOMOUNT_ERR;
}

namespace {

struct Administrator {
  std::string name;
  std::string password;
};

std::string textOr(const std::string* text) { return text != nullptr ? *text : std::string(); }

// Without credentials for the node: an empty user, which every node refuses.
Administrator administratorOf(const std::string& nodePath, const Array& credentials) {
  const Dictionary* found = get_ds_credentials_for_node_path(credentials, nodePath);
  if (found == nullptr) return {};
  return {textOr(found->string(protocol::kAdminUserName)),
          textOr(found->string(protocol::kAdminPassword))};
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
