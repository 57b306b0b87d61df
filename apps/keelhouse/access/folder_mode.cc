#include "keelhouse/access/folder_mode.h"

#include "keelhouse/core/failure.h"
#include "keelhouse/core/reply_status.h"

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

}  // namespace paddock::keelhouse
