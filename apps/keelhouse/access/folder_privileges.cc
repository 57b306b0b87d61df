#include "keelhouse/access/folder_privileges.h"

#include <utility>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/share_path.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_files";

ModeAndIds modeIn(const Dictionary& reply, const std::string& action) {
  requireStatus(reply, "status", action);
  const std::string* mode = reply.string("mode");
  const auto uid = reply.integer("uid");
  const auto gid = reply.integer("gid");
  if (mode == nullptr || !uid || !gid) throw failure(action + ": the daemon's reply has no mode");
  return {*mode, std::to_string(*uid), std::to_string(*gid)};
}

}  // namespace

ModeAndIds readMode(const Session& session, const std::string& path) {
  return modeIn(session.daemon.call(kPlugin, "getMode", {{"path", path}}),
                "the mode of " + path + " cannot be read");
}

std::optional<ModeAndIds> readModeIfPossible(const Session& session, const std::string& path) {
  try {
    return readMode(session, path);
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
    return std::nullopt;
  }
}

ModeAndIds setModeBits(const Session& session, const std::string& path, const std::string& bits) {
  return modeIn(session.daemon.call(kPlugin, "setModeBits", {{"path", path}, {"bits", bits}}),
                "the first digit of the mode of " + path + " cannot be set");
}

namespace {}  // namespace

Dictionary readPrivileges(const Session& session, const std::string& path) {
  return privilegesIn(readFolder(session, path), path);
}

Dictionary privilegesIn(const Dictionary& reply, const std::string& path) {
  Dictionary privileges = settingsPart(reply, protocol::kFileAccessPrivs);
  if (privileges.empty()) {
    requireStatus(reply, protocol::kReadStatus, "the privileges of " + path + " cannot be read");
    throw failure("the daemon's reply says nothing of the privileges of " + path);
  }
  if (const std::string* error = privileges.string(protocol::kPosixErr)) {
    throw explainMissing(errorFailure("the privileges of " + path + " cannot be read", *error),
                         path);
  }
  return privileges;
}

Dictionary writePrivileges(const Session& session, const std::string& path, Dictionary privileges,
                           const std::string& action) {
  return settingsPart(
      writeFolder(session, path, {{protocol::kFileAccessPrivs, std::move(privileges)}}, action),
      protocol::kFileAccessPrivs);
}

const Array& aclOf(const Dictionary& privileges, const std::string& path) {
  if (const Array* acl = privileges.array("acl")) return *acl;
  const std::string* error = privileges.string(protocol::kAclErr);
  const std::string action = "the ACL of " + path + " cannot be read";
  if (error != nullptr) throw errorFailure(action, *error);
  throw daemonFailure(action + ": the daemon's reply has none");
}

bool isFolder(const Dictionary& privileges) {
  const std::string* type = privileges.string(protocol::kFileType);
  return type != nullptr && *type == "directory";
}

}  // namespace paddock::keelhouse
