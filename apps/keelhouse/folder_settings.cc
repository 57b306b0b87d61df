#include "keelhouse/folder_settings.h"

#include <utility>

#include "base/printable.h"
#include "keelhouse/reply_status.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_sharing";
constexpr const char* kSharePoint = "sharePointRecord";

Dictionary folderArguments(const std::string& path) { return {{"path", path}}; }

}  // namespace

Dictionary readFolder(const Session& session, const std::string& path) {
  return session.daemon.call(kPlugin, "readSettings",
                             {{"optionalArguments", folderArguments(path)}});
}

Dictionary writeFolder(const Session& session, const std::string& path, Dictionary configuration,
                       const std::string& action) {
  Dictionary reply = session.daemon.call(
      kPlugin, "writeSettings",
      {{"optionalArguments", folderArguments(path)}, {"configuration", std::move(configuration)}});
  requireStatus(reply, "writeStatus", action);
  return reply;
}

Dictionary settingsPart(const Dictionary& reply, const char* key) {
  const Dictionary* configuration = reply.dictionary("configuration");
  const Dictionary* part = configuration != nullptr ? configuration->dictionary(key) : nullptr;
  return part != nullptr ? *part : Dictionary{};
}

Dictionary readSharePoint(const Session& session, const std::string& path) {
  const Dictionary reply = readFolder(session, path);
  Dictionary sharePoint = settingsPart(reply, kSharePoint);
  // A folder's share point is read before its volume's quotas, whose status does not count here.
  if (!sharePoint.contains("isShared")) {
    requireStatus(reply, "readStatus", "the share point of " + path + " cannot be read");
    throw failure("the daemon's reply says nothing of the share point of " + path);
  }
  return sharePoint;
}

Dictionary writeSharePoint(const Session& session, const std::string& path, Dictionary record,
                           const std::string& action, Array nodeCredentials) {
  Dictionary configuration{{kSharePoint, std::move(record)}};
  if (!nodeCredentials.empty()) configuration.set("dsCredentials", std::move(nodeCredentials));
  return settingsPart(writeFolder(session, path, std::move(configuration), action), kSharePoint);
}

bool isShared(const Dictionary& sharePoint) {
  return sharePoint.boolean("isShared").value_or(false);
}

Failure notShared(const std::string& path, const std::string& advice) {
  return failure(printable(path) + " is not shared\n" + advice);
}

}  // namespace paddock::keelhouse
