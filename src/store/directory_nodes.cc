#include "store/directory_nodes.h"

#include "platform/directory.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "protocol/keys.h"
#include "store/directory_access.h"

namespace paddock {

namespace {

constexpr const char* kVerificationRecord = "verifyAuthTempName";
constexpr Status kNoStatus = -1;

void proveWriteAccess(DirectoryNode& node) {
  node.newRecord(kVerificationRecord, schema::kMounts)->removeRecord();
}

// Of the error that is being handled.
void logNotWritable(const std::string& nodePath, const std::string& adminName) {
  services().logger->log(kLogError, "paddock_sharing: " + adminName + " cannot write to the node " +
                                        nodePath + ": " + reason_of_current_exception());
}

bool isWritable(DirectorySession& session, const std::string& nodePath) {
  try {
    return session.findNode(nodePath)->getAttributeFirstValue(schema::kReadOnlyNode) ==
           schema::kReadWrite;
  } catch (...) {
    return false;
  }
}

}  // namespace

const Dictionary* get_ds_credentials_for_node_path(const Array& credentials,
                                                   const std::string& nodePath) {
  for (const Value& entry : credentials) {
    const Dictionary* candidate = entry.dictionary();
    if (candidate == nullptr) continue;
    const std::string* candidatePath = candidate->string(protocol::kNodePath);
    if (candidatePath != nullptr && *candidatePath == nodePath) return candidate;
  }
  return nullptr;
}

Status auth_ds_node(const std::string& nodePath, const std::string& adminName,
                    const std::string& password, bool& canAuth) {
  canAuth = false;
  const auto session = services().directory->openLocal();
  const auto node = session->findNode(nodePath);
  const Status authenticated = node->authenticateName(adminName, password, false);
  if (authenticated != kSuccess) return authenticated;
  try {
    proveWriteAccess(*node);
  } catch (const DirectoryError& error) {
    const Status status = error.status().value_or(kNoStatus);
    canAuth = status == kSuccess;
    if (!canAuth) logNotWritable(nodePath, adminName);
    return status;
  } catch (...) {
    logNotWritable(nodePath, adminName);
    return kNoStatus;
  }
  canAuth = true;
  return kSuccess;
}

Status get_ds_nodes(Array& nodePaths) {
  nodePaths.clear();
  try {
    const auto session = services().directory->openLocal();
    for (const Value& path : session->searchNode()->getAttribute(schema::kSearchPath)) {
      if (path.string() != nullptr && isWritable(*session, *path.string())) {
        nodePaths.push_back(path);
      }
    }
  } catch (...) {
    // A directory without a search node has no writable nodes to offer; the status is always 0.
  }
  return kSuccess;
}

}  // namespace paddock
