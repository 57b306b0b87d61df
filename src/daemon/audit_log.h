// The audit log: one JSON object per line and changing request.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "base/file_descriptor.h"
#include "daemon/peer.h"

namespace paddock {

struct AuditEntry {
  std::chrono::system_clock::time_point time;
  std::string request;
  Peer peer;
  std::string plugin;
  std::string operation;
  std::optional<std::string> path;
  std::optional<std::int64_t> status;  // absent: refused
  std::chrono::milliseconds duration{0};
};

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

 private:
  std::string path_;
  std::mutex mutex_;
  FileDescriptor file_;
  bool lineOpen_ = false;  // the last line could be written in part only
};

}  // namespace paddock
