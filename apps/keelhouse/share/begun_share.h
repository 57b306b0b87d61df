// What a new share point leaves behind when it cannot be finished, and taking it away again.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// A share point of which this run has written the first part, under the record name `name`. Unless
// it is finished the destructor takes it out of sharing, where it is still that record's; a note
// says what it left. `credentials`: for directory nodes.
class BegunShare {
 public:
  BegunShare(const Session& session, std::string path, std::string name, Array credentials)
      : session_(session),
        path_(std::move(path)),
        name_(std::move(name)),
        credentials_(std::move(credentials)) {}
  BegunShare(const BegunShare&) = delete;
  BegunShare& operator=(const BegunShare&) = delete;
  ~BegunShare();

  void finish() { isFinished_ = true; }

 private:
  const Session& session_;
  const std::string path_;
  const std::string name_;
  const Array credentials_;
  bool isFinished_ = false;
};

// The records of share points without a path whose name is `name`, or that with a number behind it:
// what a request leaves that could not store the share point's settings. Empty where the daemon
// does not say.
std::vector<std::string> unfinishedRecords(const Session& session, const std::string& name);

// What became of the record of a share point that was to be deleted.
struct RecordDeletion {
  enum class Outcome {
    deleted,
    missing,   // there is none of exactly that name
    finished,  // it has an absolute `path`, and stays
    changed,   // changed concurrently, and kept
  };
  Outcome outcome;
  std::string path;
};
// Deletes the record of that name unless it is finished by now. Throws Failure for a status.
RecordDeletion deleteUnfinished(const Session& session, const std::string& name);

// Deletes those of them that are not among `before` and have no path still, and says so in a note.
void deleteUnfinishedRecords(const Session& session, const std::string& name,
                             const std::vector<std::string>& before);

// `failed`, which writing `record` ended with, with what was done nevertheless: a share point whose
// export alone was refused is stored. Absent where that is not so.
std::optional<Failure> sharedWithoutExport(const Session& session, const std::string& path,
                                           const Dictionary& record, const Failure& failed);

// `failed`, which writing `record` over the share point `before` ended with, with what of it is
// there nevertheless, what is not, and the command for that. `failed` itself where nothing is.
Failure partlyChanged(const Session& session, const std::string& path, const Dictionary& record,
                      const Dictionary& before, const Failure& failed);

// Throws Failure unless the export that `record` asked for is in the share point `stored`, as it
// was read back, and in the exports file.
void requireExported(const Session& session, const std::string& path, const Dictionary& record,
                     const Dictionary& stored);
// The same of an export that was to go. `done` is what was done besides ("/srv/a is no longer
// shared"), `command` finishes it.
void requireNotExported(const Session& session, const std::string& path, const std::string& done,
                        const std::string& command);

}  // namespace paddock::keelhouse
