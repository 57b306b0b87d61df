// Contents and format of an audit log line.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "daemon/audit/audit_subject.h"
#include "daemon/http/listening_socket.h"

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
  std::string parent;           // the request whose program sent this one; empty: none
  std::size_t count = 0;        // of the refused requests that it stands for; 0: of itself
  bool ofSeveralUsers = false;  // that those were; then it is about none of them
};

// RFC 3339, UTC, with milliseconds.
std::string timeText(std::chrono::system_clock::time_point time);

// The line of an entry, its newline included.
std::string auditLine(const AuditEntry& entry);

// The same before the outcome of the request is known.
std::string begunLine(const AuditEntry& entry);

// The line of a request whose outcome is unknown, built from begunLine's: "interrupted". nullopt
// for any other line.
std::optional<std::string> interruptedLine(const std::string& begun);

}  // namespace paddock
