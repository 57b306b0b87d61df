#include "keelhouse/share/smb_writing.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/folder_settings.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/share/begun_share.h"
#include "protocol/keys.h"
#include "samba/samba_text.h"

namespace paddock::keelhouse {

namespace {

// Of the share points but that of `path`, as Samba compares them.
std::vector<std::string> smbNamesBeside(const Session& session, const std::string& path) {
  const Dictionary reply = session.daemon.call("paddock_sharing", "getSharePointList", {});
  requireStatus(reply, protocol::kReadStatus, "the names over SMB cannot be read");
  std::vector<std::string> keys;
  const Array* list = reply.array(protocol::kSharePointList);
  if (list == nullptr) return keys;
  for (const Value& value : *list) {
    const Dictionary* other = value.dictionary();
    if (other == nullptr || textOf(*other, "path") == path) continue;
    if (const std::string name = textOf(*other, protocol::kNameOverSMB); !name.empty()) {
      keys.push_back(samba::shareNameKey(name));
    }
  }
  return keys;
}

// The name with the first suffix that makes it one of its own, as the daemon counts them.
std::string uniqueSmbName(const Session& session, const std::string& path,
                          const std::string& name) {
  constexpr int kLastSuffix = 999;
  const std::vector<std::string> taken = smbNamesBeside(session, path);
  const auto isTaken = [&taken](const std::string& candidate) {
    return std::find(taken.begin(), taken.end(), samba::shareNameKey(candidate)) != taken.end();
  };
  std::string candidate = name;
  for (int suffix = 1; isTaken(candidate) && suffix <= kLastSuffix; ++suffix) {
    candidate = name + "-" + std::to_string(suffix);
  }
  return candidate;
}

// Writes the record where `require`, which gets the share point as it is, does not throw.
Dictionary write(const Session& session, const ShareWriting& writing, const Dictionary& record,
                 const std::function<void(const Dictionary& present)>& require,
                 std::optional<TaggedReply> reading = {}) {
  return changeFolder(
             session, writing.path,
             [&](const Dictionary& read) {
               require(sharePointIn(read, writing.path));
               return Dictionary{{protocol::kSharePointRecord, record}};
             },
             writing.action, std::move(reading), writing.credentials)
      .after;
}

Dictionary writeFirst(const Session& session, const ShareWriting& writing,
                      const Dictionary& record) {
  const std::string name = textOf(record, "name");
  const std::vector<std::string> before = unfinishedRecords(session, name);
  try {
    return write(
        session, writing, record,
        [&writing](const Dictionary& present) { requireNotShared(present, writing.path); },
        writing.reading);
  } catch (const Refusal&) {
    throw;
  } catch (const Failure& failed) {
    deleteUnfinishedRecords(session, name, before);
    throw sharedWithoutExport(session, writing.path, record, failed).value_or(failed);
  }
}

// The names of a new share point, which the daemon makes unique, and nothing that publishes it over
// SMB or that hangs on it.
Dictionary namesOnly(const Dictionary& record) {
  Dictionary names{{"path", textOf(record, "path")}};
  for (const char* key : {"name", protocol::kNameOverVSP, protocol::kNameOverFTP}) {
    if (const std::string* name = record.string(key)) names.set(key, *name);
  }
  return names;
}

// The options as they were, where a change failed behind them.
void takeBack(const Session& session, const std::string& name, const ChangedOptions& changed) {
  const DaemonClient::Aside aside(session.daemon);
  try {
    takeBackSmbOptions(session, name, changed);
  } catch (const std::exception&) {
    session.notes << "keelhouse: note: the options over SMB of " << printable(name)
                  << " are changed already, and could not be taken back\n";
  }
}

}  // namespace

void requireNotShared(const Dictionary& sharePoint, const std::string& path) {
  if (!isShared(sharePoint)) return;
  throw failure(printable(path) + " is shared already\nChange it with: keelhouse share set PATH");
}

Dictionary writeNewShare(const Session& session, const ShareWriting& writing,
                         const SmbChanges& changes) {
  if (changes.empty()) return writeFirst(session, writing, writing.record);
  const samba::SmbOptions options = changedOptions({}, changes);
  requireTaken(session, options, {});
  const Dictionary first = settingsPart(writeFirst(session, writing, namesOnly(writing.record)),
                                        protocol::kSharePointRecord);
  const std::string name = textOf(first, "name");
  if (name.empty()) throw failure(writing.action + ": the daemon did not say its record's name");
  BegunShare begun(session, writing.path, name, writing.credentials);
  changeSmbOptions(session, name, changes, options);
  Dictionary record = writing.record;
  for (const char* key : {"name", protocol::kNameOverVSP, protocol::kNameOverFTP}) {
    if (const std::string* given = first.string(key)) record.set(key, *given);
  }
  if (const std::string wanted = textOf(record, protocol::kNameOverSMB); !wanted.empty()) {
    record.set(protocol::kNameOverSMB, uniqueSmbName(session, writing.path, wanted));
  }
  try {
    Dictionary reply = write(session, writing, record, [&](const Dictionary& present) {
      if (isShared(present) && textOf(present, "name") == name) return;
      throw failure(writing.action + ": somebody else took it out of sharing meanwhile");
    });
    begun.finish();
    return reply;
  } catch (const Failure& failed) {
    const auto partly = sharedWithoutExport(session, writing.path, record, failed);
    if (!partly) throw;
    begun.finish();
    throw Failure(*partly);
  }
}

Dictionary writeChangedShare(const Session& session, const SmbChanges& changes,
                             const Dictionary& stored, const std::function<Dictionary()>& write) {
  if (changes.empty()) return write();
  const std::string name = textOf(stored, "name");
  const ChangedOptions changed = changeSmbOptions(session, name, changes);
  try {
    return write();
  } catch (...) {
    takeBack(session, name, changed);
    throw;
  }
}

}  // namespace paddock::keelhouse
