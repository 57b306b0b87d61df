// The operations on directory nodes.
#include "handler/request_keys.h"
#include "handler/sharing_request_handler.h"
#include "store/directory_nodes.h"

namespace paddock {

Dictionary SharingRequestHandler::getDSNodesWithRequest(const Dictionary&) {
  Dictionary reply;
  const std::lock_guard lock(*gSettingsDictLock);
  Array nodePaths;
  get_ds_nodes(nodePaths);
  reply.set("dsNodeArray", std::move(nodePaths));
  return reply;
}

Dictionary SharingRequestHandler::canAuthDSNodeWithRequest(const Dictionary& request) {
  Dictionary reply;
  const std::lock_guard lock(*gSettingsDictLock);
  bool canAuth = false;
  // No node has an empty path, and an empty name or password authenticates nowhere.
  const Status status = auth_ds_node(textOf(request, "dsNodeName"), textOf(request, "dsAdminName"),
                                     textOf(request, "dsAdminPW"), canAuth);
  reply.set("canAuth", canAuth);
  if (status != kSuccess) reply.set(kErrorKey, sharing_error_string(status));
  return reply;
}

}  // namespace paddock
