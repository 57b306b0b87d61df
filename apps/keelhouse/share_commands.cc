#include "keelhouse/share_commands.h"

#include "keelhouse/folder_settings.h"
#include "keelhouse/reply_status.h"
#include "keelhouse/share_path.h"
#include "keelhouse/share_view.h"
#include "keelhouse/terminal_text.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_sharing";

void print(const Session& session, const Dictionary& sharePoint) {
  if (session.json) {
    session.out << wire::writeJsonPretty(sharePoint) << '\n';
  } else {
    session.out << formatSharePoint(sharePoint);
  }
}

}  // namespace

ExitStatus listShares(const Session& session) {
  const Dictionary reply = session.daemon.call(kPlugin, "getSharePointList", {});
  requireStatus(reply, "readStatus", "the share points cannot be listed");
  const Array* list = reply.array("sharePointList");
  if (session.json) {
    session.out << wire::writeJsonPretty(list != nullptr ? Value(*list) : Value(Array{})) << '\n';
  } else if (list == nullptr || list->empty()) {
    session.out << "No folder is shared.\n";
  } else {
    session.out << formatShareTable(*list);
  }
  return ExitStatus::done;
}

ExitStatus showShare(const Session& session, const std::string& typedPath) {
  const std::string path = absolutePath(typedPath);
  const Dictionary sharePoint = readSharePoint(session, path);
  if (!isShared(sharePoint)) throw notShared(path, "Share it with: keelhouse share add PATH");
  print(session, sharePoint);
  return ExitStatus::done;
}

ExitStatus addShare(const Session& session, const std::string& typedPath,
                    const ShareChanges& changes, bool force) {
  const std::string path = absolutePath(typedPath);
  Dictionary record = newShareRecord(path, changes);
  if (!force) requireFolder(path);
  if (isShared(readSharePoint(session, path))) {
    throw failure(path + " is shared already\nChange it with: keelhouse share set PATH");
  }
  const Dictionary result =
      writeSharePoint(session, path, std::move(record), path + " cannot be shared");
  if (!isShared(result)) throw failure(path + " was written, but does not read back as shared");
  print(session, result);
  return ExitStatus::done;
}

ExitStatus setShare(const Session& session, const std::string& typedPath,
                    const ShareChanges& changes) {
  if (changes.empty()) throw usageFailure("share set: no option says what to change");
  const std::string path = absolutePath(typedPath);
  const Dictionary stored = readSharePoint(session, path);
  if (!isShared(stored)) throw notShared(path, "Share it with: keelhouse share add PATH");
  const Dictionary result =
      writeSharePoint(session, path, changedShareRecord(path, changes, stored),
                      "the share point of " + path + " cannot be changed");
  print(session, result);
  return ExitStatus::done;
}

ExitStatus removeShare(const Session& session, const std::string& typedPath) {
  const std::string path = absolutePath(typedPath);
  if (!isShared(readSharePoint(session, path))) {
    throw notShared(path, "See what is: keelhouse share list");
  }
  const Dictionary result = writeSharePoint(session, path, {{"isShared", false}},
                                            path + " cannot be taken out of sharing");
  if (isShared(result)) {
    throw failure(path +
                  " is still shared\nThe daemon's log may say why (journalctl -u "
                  "paddockd).");
  }
  if (session.json) {
    print(session, result);
  } else {
    session.out << printable(path) << " is no longer shared.\n";
  }
  return ExitStatus::done;
}

}  // namespace paddock::keelhouse
