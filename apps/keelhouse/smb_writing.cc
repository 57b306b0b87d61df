#include "keelhouse/smb_writing.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "base/printable.h"
#include "keelhouse/failure.h"
#include "keelhouse/folder_settings.h"
#include "keelhouse/reply_status.h"
#include "samba/samba_text.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kSharePoint = "sharePointRecord";
constexpr const char* kSmbName = "nameOverSMB";

Dictionary write(const Session& session, const ShareWriting& writing, Dictionary record) {
  Dictionary configuration{{kSharePoint, std::move(record)}};
  if (!writing.credentials.empty()) configuration.set("dsCredentials", writing.credentials);
  return writeFolder(session, writing.path, std::move(configuration), writing.action);
}

std::string textOf(const Dictionary& dictionary, const char* key) {
  const std::string* text = dictionary.string(key);
  return text != nullptr ? *text : std::string();
}

// Of the share points but that of `path`, as Samba compares them.
std::vector<std::string> smbNamesBeside(const Session& session, const std::string& path) {
  const Dictionary reply = session.daemon.call("paddock_sharing", "getSharePointList", {});
  requireStatus(reply, "readStatus", "the names over SMB cannot be read");
  std::vector<std::string> keys;
  const Array* list = reply.array("sharePointList");
  if (list == nullptr) return keys;
  for (const Value& value : *list) {
    const Dictionary* other = value.dictionary();
    if (other == nullptr || textOf(*other, "path") == path) continue;
    if (const std::string name = textOf(*other, kSmbName); !name.empty()) {
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

// What was begun of a new share point; taken away again unless it was finished.
class BegunShare {
 public:
  BegunShare(const Session& session, const ShareWriting& writing)
      : session_(session), writing_(writing) {}
  BegunShare(const BegunShare&) = delete;
  BegunShare& operator=(const BegunShare&) = delete;
  ~BegunShare() {
    if (finished_) return;
    try {
      write(session_, writing_, {{"isShared", false}});
    } catch (const std::exception&) {
      session_.notes << "keelhouse: note: " << printable(writing_.path)
                     << " may be shared in part: see keelhouse share show\n";
    }
  }
  void finish() { finished_ = true; }

 private:
  const Session& session_;
  const ShareWriting& writing_;
  bool finished_ = false;
};

// The names of a new share point, which the daemon makes unique, and nothing that publishes it over
// SMB or that hangs on it.
Dictionary namesOnly(const Dictionary& record) {
  Dictionary names{{"path", textOf(record, "path")}};
  for (const char* key : {"name", "nameOverVSP", "nameOverFTP"}) {
    if (const std::string* name = record.string(key)) names.set(key, *name);
  }
  return names;
}

Dictionary writeChange(const Session& session, const ShareWriting& writing) {
  return writing.send ? writing.send() : write(session, writing, writing.record);
}

// The options as they were, where a change failed behind them.
void restore(const Session& session, const std::string& name, const samba::SmbOptions& options) {
  try {
    writeSmbOptions(session, name, options);
  } catch (const std::exception&) {
    session.notes << "keelhouse: note: the options over SMB of " << printable(name)
                  << " are changed already, and could not be taken back\n";
  }
}

}  // namespace

Dictionary writeNewShare(const Session& session, const ShareWriting& writing,
                         const SmbChanges& changes) {
  if (changes.empty()) return write(session, writing, writing.record);
  const samba::SmbOptions options = changedOptions({}, changes);
  requireTaken(session, options, {});
  BegunShare begun(session, writing);
  const Dictionary first =
      settingsPart(write(session, writing, namesOnly(writing.record)), kSharePoint);
  const std::string* name = first.string("name");
  if (name == nullptr) throw failure(writing.action + ": the daemon did not say its record's name");
  writeSmbOptions(session, *name, options);
  Dictionary record = writing.record;
  for (const char* key : {"name", "nameOverVSP", "nameOverFTP"}) {
    if (const std::string* given = first.string(key)) record.set(key, *given);
  }
  if (const std::string wanted = textOf(record, kSmbName); !wanted.empty()) {
    record.set(kSmbName, uniqueSmbName(session, writing.path, wanted));
  }
  Dictionary reply = write(session, writing, std::move(record));
  begun.finish();
  return reply;
}

Dictionary writeChangedShare(const Session& session, const ShareWriting& writing,
                             const SmbChanges& changes, const Dictionary& stored) {
  if (changes.empty()) return writeChange(session, writing);
  const std::string name = textOf(stored, "name");
  const samba::SmbOptions before = readSmbOptions(session, name);
  const samba::SmbOptions options = changedOptions(before, changes);
  requireTaken(session, options, before);
  writeSmbOptions(session, name, options);
  try {
    return writeChange(session, writing);
  } catch (...) {
    restore(session, name, before);
    throw;
  }
}

}  // namespace paddock::keelhouse
