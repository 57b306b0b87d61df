#include "keelhouse/volume/index_commands.h"

#include <utility>

#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/named_share.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/share/nfs_exports.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

Dictionary sharedFolder(const Session& session, const std::string& path) {
  Dictionary sharePoint = readSharePoint(session, path);
  if (!isShared(sharePoint)) {
    throw notShared(path,
                    "Shared folders alone can be indexed. Share it with: keelhouse share add PATH");
  }
  return sharePoint;
}

bool isIndexed(const Dictionary& sharePoint, const std::string& path) {
  const auto indexed = sharePoint.boolean(protocol::kIsIndexingEnabled);
  if (!indexed) throw failure("the daemon's reply says nothing of the indexing of " + path);
  return *indexed;
}

void print(const Session& session, const std::string& path, bool indexed) {
  if (session.json) {
    session.out << wire::writeJsonPretty(
                       Dictionary{{"path", path}, {protocol::kIsIndexingEnabled, indexed}})
                << '\n';
  } else {
    session.out << printable(path)
                << (indexed ? " is indexed for search.\n" : " is not indexed.\n");
  }
}

ExitStatus switchIndexing(const Session& session, const std::string& typedPath, bool on) {
  const std::string path = folderPath(session, typedPath);
  const Dictionary stored = sharedFolder(session, path);
  // The stored path may differ from the given one by letter case, and is that of the index.
  const std::string* storedPath = stored.string("path");
  const std::string action =
      "the indexing of " + path + " cannot be switched " + (on ? "on" : "off");
  Dictionary record{{"path", storedPath != nullptr ? *storedPath : path},
                    {protocol::kIsIndexingEnabled, on}};
  const std::string& exported = *record.string("path");
  requireOneExportLine(session, exported, action, false);
  const Dictionary result = writeSharePoint(session, path, std::move(record), action);
  if (isIndexed(result, path) != on) {
    throw daemonFailure(action + ": it is still " + (on ? "off" : "on"));
  }
  print(session, path, on);
  return ExitStatus::done;
}

}  // namespace

ExitStatus showIndexing(const Session& session, const std::string& typedPath) {
  const std::string path = folderPath(session, typedPath);
  print(session, path, isIndexed(sharedFolder(session, path), path));
  return ExitStatus::done;
}

ExitStatus switchIndexingOn(const Session& session, const std::string& path) {
  return switchIndexing(session, path, true);
}

ExitStatus switchIndexingOff(const Session& session, const std::string& path) {
  return switchIndexing(session, path, false);
}

}  // namespace paddock::keelhouse
