#include "keelhouse/access/folder_privileges.h"

#include <utility>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/share_path.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPrivileges = "fileAccessPrivs";

}  // namespace

Dictionary readPrivileges(const Session& session, const std::string& path) {
  return privilegesIn(readFolder(session, path), path);
}

Dictionary privilegesIn(const Dictionary& reply, const std::string& path) {
  Dictionary privileges = settingsPart(reply, kPrivileges);
  if (privileges.empty()) {
    requireStatus(reply, "readStatus", "the privileges of " + path + " cannot be read");
    throw failure("the daemon's reply says nothing of the privileges of " + path);
  }
  if (const std::string* error = privileges.string("posixErr")) {
    throw explainMissing(errorFailure("the privileges of " + path + " cannot be read", *error),
                         path);
  }
  return privileges;
}

Dictionary writePrivileges(const Session& session, const std::string& path, Dictionary privileges,
                           const std::string& action) {
  return settingsPart(writeFolder(session, path, {{kPrivileges, std::move(privileges)}}, action),
                      kPrivileges);
}

const Array& aclOf(const Dictionary& privileges, const std::string& path) {
  if (const Array* acl = privileges.array("acl")) return *acl;
  const std::string* error = privileges.string("aclErr");
  const std::string action = "the ACL of " + path + " cannot be read";
  if (error != nullptr) throw errorFailure(action, *error);
  throw daemonFailure(action + ": the daemon's reply has none");
}

bool isFolder(const Dictionary& privileges) {
  const std::string* type = privileges.string("fileType");
  return type != nullptr && *type == "directory";
}

}  // namespace paddock::keelhouse
