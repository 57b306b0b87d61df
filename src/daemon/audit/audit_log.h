// The audit log: one JSON object per line and changing request. Thread-safe.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/file_access.h"
#include "base/mutex.h"
#include "daemon/audit/audit_entry.h"
#include "daemon/audit/begun_changes.h"
#include "daemon/audit/refusal_rate.h"

namespace paddock {

class AuditLog {
 public:
  // Throws std::system_error when the file cannot be opened. `begunFolder`: where changes are
  // recorded while in progress (empty: nowhere); those that an earlier daemon did not finish are
  // logged now.
  explicit AuditLog(std::string path, const std::string& begunFolder = {});
  AuditLog(const AuditLog&) = delete;
  AuditLog& operator=(const AuditLog&) = delete;
  // Writes the lines of refused requests that were only counted so far.
  ~AuditLog();

  // Reopens the path after it was renamed. On failure the open file stays in use.
  void reopen();
  // A failure is reported to the system log. A deleted file is recreated.
  void write(const AuditEntry& entry);
  // The same for a refused request, subject to rate limiting (refusal_rate.h).
  void writeRefusal(const AuditEntry& entry);
  // Called once a second: writes what is due, and retries what could not be written.
  void tick();

  // The newest lines of the open file, in their order and without their ends: at most `limit`, and
  // at most `kNewestBytes` of them. Throws std::system_error when it cannot be read.
  std::vector<std::string> newest(std::size_t limit) const;
  static constexpr std::size_t kNewestBytes = 4U << 20U;

 private:
  friend class AuditedChange;

  struct UnderWay {
    std::size_t reserved = 0;
    bool required = false;
  };
  struct Owed {
    std::string request;
    std::string line;
  };

  void begin(const AuditEntry& entry, bool required);
  void end(const std::string& request);
  void writeInterrupted();
  // Returns 0 or an errno.
  void append(const AuditEntry& entry) PADDOCK_REQUIRES(mutex_);
  int appendLine(const AuditEntry& entry, const std::string& line) PADDOCK_REQUIRES(mutex_);
  int makeSure(std::size_t bytes) PADDOCK_REQUIRES(mutex_);
  int writeOwed() PADDOCK_REQUIRES(mutex_);
  int writeLine(std::string line, bool durable) PADDOCK_REQUIRES(mutex_);
  int reopenWhenGone() PADDOCK_REQUIRES(mutex_);
  std::size_t reserved() const PADDOCK_REQUIRES(mutex_);

  std::string path_;
  std::optional<BegunChanges> begun_;
  mutable Mutex mutex_;
  FileDescriptor file_ PADDOCK_GUARDED_BY(mutex_);
  // The last line was written only partially.
  bool lineOpen_ PADDOCK_GUARDED_BY(mutex_) = false;
  RefusalRate refusals_ PADDOCK_GUARDED_BY(mutex_);
  std::map<std::string, UnderWay> underWay_ PADDOCK_GUARDED_BY(mutex_);
  // Lines of changes that could not be written, oldest first.
  std::deque<Owed> owed_ PADDOCK_GUARDED_BY(mutex_);
};

// A change from before it is made until its line is written: if the daemon ends in between, the
// next one logs that it was begun.
class AuditedChange {
 public:
  // `required`: throws std::system_error when its line could not be written; that is ensured before
  // the change, and synced to disk after it.
  AuditedChange(AuditLog& log, const AuditEntry& entry, bool required);
  AuditedChange(const AuditedChange&) = delete;
  AuditedChange& operator=(const AuditedChange&) = delete;
  ~AuditedChange();

 private:
  AuditLog& log_;
  std::string request_;
};

}  // namespace paddock
