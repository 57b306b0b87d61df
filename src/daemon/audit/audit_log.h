// The audit log: one JSON object per line and changing request. Any thread may call.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/file_descriptor.h"
#include "daemon/audit/audit_entry.h"
#include "daemon/audit/begun_changes.h"
#include "daemon/audit/refusal_rate.h"

namespace paddock {

class AuditLog {
 public:
  // Throws std::system_error when the file cannot be opened. `begunFolder`: where changes leave
  // their trace while they are made (empty: nowhere); those that an earlier daemon did not come to
  // the end of get their lines now.
  explicit AuditLog(std::string path, const std::string& begunFolder = {});
  AuditLog(const AuditLog&) = delete;
  AuditLog& operator=(const AuditLog&) = delete;
  // Writes the lines of refused requests that were only counted yet.
  ~AuditLog();

  // Opens the path again, after it was moved away. On failure the open file stays in use.
  void reopen();
  // A failure goes to the system log. A file that somebody deleted is made again.
  void write(const AuditEntry& entry);
  // The same for a refused request, of which only so many have lines of their own (refusal_rate.h).
  void writeRefusal(const AuditEntry& entry);
  // Once a second: writes what is due, and what could not be written before.
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
  // These hold the mutex. Errno values: 0 when it was done.
  void append(const AuditEntry& entry);
  int appendLine(const AuditEntry& entry, const std::string& line);
  int makeSure(std::size_t bytes);
  int writeOwed();
  int writeLine(std::string line, bool durable);
  int reopenWhenGone();
  std::size_t reserved() const;

  std::string path_;
  std::optional<BegunChanges> begun_;
  mutable std::mutex mutex_;
  FileDescriptor file_;
  bool lineOpen_ = false;  // the last line could be written in part only
  RefusalRate refusals_;
  std::map<std::string, UnderWay> underWay_;
  std::deque<Owed> owed_;  // lines of changes that could not be written; the oldest first
};

// A change from before it is made until its line is written: were the daemon to end in between, the
// next one would write that it was begun.
class AuditedChange {
 public:
  // `required`: throws std::system_error when a line of it could not be written, which is made sure
  // before and on the disk after it.
  AuditedChange(AuditLog& log, const AuditEntry& entry, bool required);
  AuditedChange(const AuditedChange&) = delete;
  AuditedChange& operator=(const AuditedChange&) = delete;
  ~AuditedChange();

 private:
  AuditLog& log_;
  std::string request_;
};

}  // namespace paddock
