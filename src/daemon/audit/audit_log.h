// The audit log: one JSON object per line and changing request.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/file_descriptor.h"
#include "daemon/audit/audit_subject.h"
#include "daemon/http/peer.h"

namespace paddock {

struct AuditEntry {
  std::chrono::system_clock::time_point time;
  std::string request;
  Peer peer;
  std::string plugin;
  std::string operation;
  AuditSubject subject;
  std::optional<std::int64_t> status;  // absent: refused
  std::chrono::milliseconds duration{0};
  std::string parent;  // the request whose program made this one; empty: none
};

// RFC 3339, UTC, with milliseconds.
std::string timeText(std::chrono::system_clock::time_point time);

// The line of an entry, its newline included.
std::string auditLine(const AuditEntry& entry);

class AuditLog {
 public:
  // Throws std::system_error when the file cannot be opened.
  explicit AuditLog(std::string path);

  // Opens the path again, after it was moved away. On failure the open file stays in use.
  void reopen();
  // A failure goes to the system log.
  void write(const AuditEntry& entry);

  // The newest lines of the open file, in their order and without their ends: at most `limit`, and
  // at most `kNewestBytes` of them. Throws std::system_error when it cannot be read.
  std::vector<std::string> newest(std::size_t limit) const;
  static constexpr std::size_t kNewestBytes = 4U << 20U;

 private:
  std::string path_;
  mutable std::mutex mutex_;
  FileDescriptor file_;
  bool lineOpen_ = false;  // the last line could be written in part only
};

}  // namespace paddock
