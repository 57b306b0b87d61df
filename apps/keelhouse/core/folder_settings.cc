#include "keelhouse/core/folder_settings.h"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "base/text.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/share_path.h"
#include "keelhouse/core/suggested_words.h"
#include "protocol/keys.h"
#include "samba/samba_text.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_sharing";

Dictionary folderArguments(const std::string& path) { return {{"path", path}}; }

Dictionary writeRequest(const std::string& path, Dictionary configuration) {
  return {{protocol::kOptionalArguments, folderArguments(path)},
          {"configuration", std::move(configuration)}};
}

// Whether the settings are read back as they were read before.
bool isUnchanged(const Dictionary& before, const Dictionary& after) {
  const Dictionary* old = before.dictionary("configuration");
  const Dictionary* present = after.dictionary("configuration");
  return old != nullptr && present != nullptr && *old == *present;
}

// `before` is a reading in the state in which the change was made, where there is one.
void requireWritten(const Dictionary& reply, const std::string& path, const std::string& action,
                    const Dictionary* before) {
  try {
    requireStatus(reply, protocol::kWriteStatus, action);
  } catch (const Failure& failed) {
    const bool isAsBefore = before != nullptr && isUnchanged(*before, reply);
    if (!isAsBefore) throw explainMissing(failed, path);
    throw explainMissing(failed, path).withMore("Nothing was changed.");
  }
}

}  // namespace

TaggedReply readTaggedFolder(const Session& session, const std::string& path) {
  // Without a condition there is always a reply.
  return *session.daemon.callTagged(kPlugin, "readSettings",
                                    {{protocol::kOptionalArguments, folderArguments(path)}});
}

Dictionary readFolder(const Session& session, const std::string& path) {
  return readTaggedFolder(session, path).body;
}

Dictionary writeFolder(const Session& session, const std::string& path, Dictionary configuration,
                       const std::string& action) {
  Dictionary reply =
      session.daemon.call(kPlugin, "writeSettings", writeRequest(path, std::move(configuration)));
  requireWritten(reply, path, action, nullptr);
  return reply;
}

ChangedFolder changeFolder(const Session& session, const std::string& path, const Decision& decide,
                           const std::string& action, std::optional<TaggedReply> first,
                           const Array& nodeCredentials, ChangeKind kind) {
  ChangedFolder changed;
  repeatUntilUndisturbed(action, [&](int attempt) {
    const TaggedReply reading =
        first ? *std::exchange(first, std::nullopt) : readTaggedFolder(session, path);
    changed.before = reading.body;
    changed.retried = attempt > 0;
    if (!changed.retried) changed.first = reading.body;
    Dictionary configuration = decide(reading.body);
    if (!nodeCredentials.empty()) configuration.set(protocol::kDsCredentials, nodeCredentials);
    auto written = session.daemon.callTagged(
        kPlugin, "writeSettings", writeRequest(path, std::move(configuration)), reading.tag);
    if (!written) return false;
    const bool isWhole = kind == ChangeKind::whole && !reading.tag.empty();
    requireWritten(written->body, path, action, isWhole ? &reading.body : nullptr);
    changed.after = std::move(written->body);
    changed.readBackIsOwn = reading.tag.empty() || !written->tag.empty();
    return true;
  });
  return changed;
}

Dictionary settingsPart(const Dictionary& reply, const char* key) {
  const Dictionary* configuration = reply.dictionary("configuration");
  const Dictionary* part = configuration != nullptr ? configuration->dictionary(key) : nullptr;
  return part != nullptr ? *part : Dictionary{};
}

Dictionary readSharePoint(const Session& session, const std::string& path) {
  Dictionary sharePoint = sharePointIn(readFolder(session, path), path);
  requireSameFolder(sharePoint, path);
  return sharePoint;
}

void requireSameFolder(const Dictionary& sharePoint, const std::string& path) {
  const std::string* stored = sharePoint.string("path");
  if (stored == nullptr || *stored == path) return;
  if (samba::shareNameKey(*stored) != samba::shareNameKey(path)) {
    throw failure("the share of " + printable(path) + " was moved to " + printable(*stored) +
                  " meanwhile\nNothing was changed. See it: keelhouse share show " +
                  printable(shellWord(*stored)));
  }
  struct stat asked {};
  struct stat found {};
  if (::stat(path.c_str(), &asked) != 0) {
    // Where the path does not exist, the stored one is meant.
    if (errno == ENOENT || errno == ENOTDIR) return;
    throw failure("whether " + printable(path) + " is " + printable(*stored) +
                  ", which is shared, cannot be told: " + std::generic_category().message(errno) +
                  "\nNothing was changed. Write the path as it is stored.");
  }
  const bool isThere = ::stat(stored->c_str(), &found) == 0;
  if (isThere && asked.st_dev == found.st_dev && asked.st_ino == found.st_ino) return;
  throw failure(
      printable(path) + " is not " + printable(*stored) +
      ", which is shared: they differ in letter case alone, and one of two such folders "
      "can be shared\nNothing was changed. The one that is shared: keelhouse share show " +
      printable(shellWord(*stored)));
}

Dictionary sharePointIn(const Dictionary& reply, const std::string& path) {
  Dictionary sharePoint = settingsPart(reply, protocol::kSharePointRecord);
  // A folder's share point is read before its volume's quotas, whose status does not count here.
  if (!sharePoint.contains(protocol::kIsShared)) {
    requireStatus(reply, protocol::kReadStatus, "the share point of " + path + " cannot be read");
    throw failure("the daemon's reply says nothing of the share point of " + path);
  }
  return sharePoint;
}

Dictionary writeSharePoint(const Session& session, const std::string& path, Dictionary record,
                           const std::string& action, Array nodeCredentials) {
  Dictionary configuration{{protocol::kSharePointRecord, std::move(record)}};
  if (!nodeCredentials.empty())
    configuration.set(protocol::kDsCredentials, std::move(nodeCredentials));
  return settingsPart(writeFolder(session, path, std::move(configuration), action),
                      protocol::kSharePointRecord);
}

bool isShared(const Dictionary& sharePoint) {
  return sharePoint.boolean(protocol::kIsShared).value_or(false);
}

Failure notShared(const std::string& path, const std::string& advice) {
  return failure(printable(path) + " is not shared\n" + advice);
}

}  // namespace paddock::keelhouse
