#include "daemon/audit_log.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <ctime>

#include "base/system_call.h"
#include "base/value.h"
#include "paddock/sys_logger.h"
#include "wire/json.h"

namespace paddock {
namespace {

constexpr mode_t kMode = 0640;

FileDescriptor openLog(const std::string& path) {
  FileDescriptor file(::open(
      path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY,
      kMode));
  if (!file) throw systemError(errno, "open", path);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throw systemError(errno, "stat", path);
  if (!S_ISREG(status.st_mode)) throw systemError(EINVAL, "not a regular file:", path);
  return file;
}

// RFC 3339, UTC, with milliseconds.
std::string timeText(std::chrono::system_clock::time_point time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time - seconds).count();
  const std::time_t number = std::chrono::system_clock::to_time_t(seconds);
  std::tm parts{};
  ::gmtime_r(&number, &parts);
  std::array<char, 32> date{};
  std::array<char, 8> fraction{};
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(fraction.data(), fraction.size(), ".%03dZ", static_cast<int>(milliseconds));
  return std::string(date.data()) + fraction.data();
}

}  // namespace

std::string auditLine(const AuditEntry& entry) {
  Dictionary line{{"time", timeText(entry.time)},
                  {"request", entry.request},
                  {"uid", entry.peer.uid},
                  {"pid", entry.peer.process},
                  {"plugin", entry.plugin},
                  {"operation", entry.operation},
                  {"ms", std::int64_t{entry.duration.count()}}};
  if (entry.path) line.set("path", *entry.path);
  if (entry.status) {
    line.set("status", *entry.status);
  } else {
    line.set("refused", true);
  }
  return wire::writeJson(line) + "\n";
}

AuditLog::AuditLog(std::string path) : path_(std::move(path)), file_(openLog(path_)) {}

void AuditLog::reopen() {
  try {
    FileDescriptor file = openLog(path_);
    const std::scoped_lock lock(mutex_);
    file_ = std::move(file);
    lineOpen_ = false;
  } catch (const std::exception& error) {
    logMessage(3, std::string("audit log not opened again: ") + error.what());
  }
}

void AuditLog::write(const AuditEntry& entry) {
  std::string line = auditLine(entry);
  const std::scoped_lock lock(mutex_);
  if (lineOpen_) line.insert(line.begin(), '\n');
  // One call per line, so that lines never mix.
  const auto written =
      retryOnInterrupt([this, &line] { return ::write(file_.get(), line.data(), line.size()); });
  if (written == static_cast<ssize_t>(line.size())) {
    lineOpen_ = false;
    return;
  }
  lineOpen_ = lineOpen_ || written > 0;
  logMessage(3, "audit log not written: " +
                    std::string(systemError(written < 0 ? errno : ENOSPC, "write", path_).what()));
}

}  // namespace paddock
