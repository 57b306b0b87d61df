// The operations that push privileges down a folder, follow such a run, and compute inherited ACLs
// and effective permissions.
#include <array>
#include <limits>
#include <optional>
#include <stdexcept>

#include "base/mutex.h"
#include "handler/request_keys.h"
#include "handler/shared_folder_check.h"
#include "handler/sharing_request_handler.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "privileges/acl_manipulation.h"
#include "privileges/bundle_programs.h"
#include "privileges/get_acl.h"
#include "protocol/keys.h"

namespace paddock {

namespace {

constexpr const char* kPathsKey = "paths";
constexpr const char* kAclKey = "acl";
constexpr const char* kStatusKey = "status";
constexpr const char* kUidKey = "uid";
constexpr const char* kBitmapKey = "bitmap";

struct Selection {
  const char* key;
  PropagationMask bit;
};

constexpr std::array<Selection, 6> kSelections = {{{protocol::kPropOwnerName, kSetOwner},
                                                   {protocol::kPropGroupName, kSetGroup},
                                                   {protocol::kPropOwnerPerm, kSetOwnerPermissions},
                                                   {protocol::kPropGroupPerm, kSetGroupPermissions},
                                                   {protocol::kPropWorldPerm, kSetOtherPermissions},
                                                   {protocol::kPropACL, kSetInheritedEntries}}};

// Deliberate: 1 alone selects, not every number but 0.
PropagationMask selectionMask(const Dictionary& request) {
  PropagationMask mask = 0;
  for (const Selection& selection : kSelections) {
    if (request.integer(selection.key) == 1) mask |= selection.bit;
  }
  return mask;
}

// The first of "paths"; null when there are none, or it is no text.
const std::string* firstPath(const Dictionary& request) {
  const Array* paths = request.array(kPathsKey);
  if (paths == nullptr) return nullptr;
  if (paths->empty()) throw std::out_of_range("\"paths\" is an empty array: it has no first path");
  return paths->front().string();
}

void copyFromContext(const Context& context, const char* key, Dictionary& reply) {
  reply.set(key, context.get(key));
}

// Root's when the request names none. Null for an invalid user id, which would otherwise select
// another user, possibly root.
std::optional<std::uint32_t> userIdOf(const Dictionary& request) {
  if (!request.contains(kUidKey)) return 0;
  const auto number = request.integer(kUidKey);
  if (!number || *number < 0 || *number > std::numeric_limits<std::uint32_t>::max()) return {};
  return static_cast<std::uint32_t>(*number);
}

}  // namespace

Dictionary SharingRequestHandler::fileInheritACLWithRequest(const Dictionary& request) {
  Dictionary reply;
  const SettingsLockGuard lock("fileInheritACL", request.string(kPathKey));
  Array entries;
  const Status status = inherit_parent_ACL(textOf(request, kPathKey), entries);
  if (status == kSuccess) {
    reply.set(kAclKey, std::move(entries));
  } else {
    reply.set(kErrorKey, sharing_error_string(status));
  }
  return reply;
}

Dictionary SharingRequestHandler::startPropagateWithRequest(const Dictionary& request) {
  Dictionary reply;
  const SettingsLockGuard lock("startPropagate", firstPath(request));
  const std::string* path = firstPath(request);
  if (path == nullptr) {
    services().logger->log(kLogError,
                           "paddock_sharing: Privileges cannot be pushed down: the request names "
                           "no folder (\"paths\" is no array, or its first element no text)");
  }
  const Status status = path != nullptr && is_folder_as_shared(sharedFolders_, *path)
                            ? start_propagate_privs(context(), *path, selectionMask(request))
                            : Status{CANNOT_PROPAGATE_PRIVS_ERR};
  if (status != kSuccess) {
    reply.set(kErrorKey, sharing_error_string(status));
    return reply;
  }
  reply.set(kPathKey, *path);
  copyFromContext(context(), protocol::kCopyPrivsPid, reply);
  copyFromContext(context(), protocol::kCopyPrivsStatusFile, reply);
  return reply;
}

Dictionary SharingRequestHandler::statusCopyPrivsWithRequest(const Dictionary& request) {
  Dictionary reply;
  const SettingsLockGuard lock("statusCopyPrivs", nullptr);
  std::optional<Dictionary> found;
  const Status status =
      get_copyprivs_status(context(), request.find(protocol::kCopyPrivsPid), found,
                           textOf(request, protocol::kCopyPrivsStatusFile));
  if (found) reply.set(kStatusKey, std::move(*found));
  if (status != kSuccess) reply.set(kErrorKey, sharing_error_string(status));
  return reply;
}

Dictionary SharingRequestHandler::getEffectivePermsWithRequest(const Dictionary& request) {
  Dictionary reply;
  const SettingsLockGuard lock("getEffectivePerms", request.string(kPathKey));
  const std::string* path = request.string(kPathKey);
  std::int32_t bitmap = 0;
  const auto uid = userIdOf(request);
  // Deliberate: its status is not reported.
  if (path != nullptr && uid) (void)get_effective_permissions(*path, *uid, bitmap);
  reply.set(kBitmapKey, bitmap);
  if (path != nullptr) reply.set(kPathKey, *path);
  return reply;
}

}  // namespace paddock
