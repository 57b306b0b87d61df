#include "daemon/audit/audit_log.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>
#include <utility>

#include "base/system_call.h"
#include "base/value.h"
#include "paddock/sys_logger.h"
#include "wire/json.h"

namespace paddock {
namespace {

constexpr mode_t kMode = 0640;

FileDescriptor openLog(const std::string& path) {
  FileDescriptor file(
      ::open(path.c_str(),
             O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, kMode));
  if (!file) throw systemError(errno, "open", path);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throw systemError(errno, "stat", path);
  if (!S_ISREG(status.st_mode)) throw systemError(EINVAL, "not a regular file:", path);
  return file;
}

void describe(const AuditSubject& subject, Dictionary& line) {
  if (!subject.paths.empty()) {
    line.set("paths", Array(subject.paths.begin(), subject.paths.end()));
  }
  for (const auto& [key, value] :
       {std::pair{"path", &subject.path}, std::pair{"node", &subject.node},
        std::pair{"type", &subject.type}, std::pair{"name", &subject.name}}) {
    if (*value) line.set(key, **value);
  }
}

}  // namespace

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

std::string auditLine(const AuditEntry& entry) {
  Dictionary line{{"time", timeText(entry.time)},
                  {"request", entry.request},
                  {"uid", entry.peer.uid},
                  {"pid", entry.peer.process},
                  {"plugin", entry.plugin},
                  {"operation", entry.operation},
                  {"ms", std::int64_t{entry.duration.count()}}};
  describe(entry.subject, line);
  if (!entry.parent.empty()) line.set("parent", entry.parent);
  if (entry.peer.loginUser) line.set("loginuid", *entry.peer.loginUser);
  if (entry.status) {
    line.set("status", *entry.status);
  } else {
    line.set("refused", true);
  }
  return wire::writeJson(line) + "\n";
}

namespace {

// The last `limit` complete lines of a text.
std::vector<std::string> lastLines(std::string_view text, std::size_t limit) {
  std::vector<std::string> lines;
  text = text.substr(0, text.rfind('\n') + 1);
  while (!text.empty() && lines.size() < limit) {
    text.remove_suffix(1);
    const std::size_t start = text.rfind('\n') + 1;
    if (start < text.size()) lines.emplace_back(text.substr(start));
    text = text.substr(0, start);
  }
  std::reverse(lines.begin(), lines.end());
  return lines;
}

// The last bytes of a file, from the beginning of a line on.
std::string endOf(int file, const std::string& path) {
  struct stat status {};
  if (::fstat(file, &status) != 0) throw systemError(errno, "stat", path);
  const auto size = static_cast<std::size_t>(status.st_size);
  // One byte more says whether the first of them begins a line.
  const std::size_t start = size - std::min(size, AuditLog::kNewestBytes + 1);
  std::string text(size - start, '\0');
  std::size_t have = 0;
  while (have < text.size()) {
    const auto got = retryOnInterrupt([&] {
      return ::pread(file, text.data() + have, text.size() - have,
                     static_cast<off_t>(start + have));
    });
    if (got < 0) throw systemError(errno, "read", path);
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  text.resize(have);
  return start == 0 ? text : text.substr(std::min(text.find('\n'), text.size() - 1) + 1);
}

}  // namespace

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

std::vector<std::string> AuditLog::newest(std::size_t limit) const {
  FileDescriptor file;
  {
    const std::scoped_lock lock(mutex_);
    file = FileDescriptor(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 3));
  }
  if (!file) throw systemError(errno, "open", path_);
  return lastLines(endOf(file.get(), path_), limit);
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
