#include "daemon/audit/audit_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "base/system_call.h"
#include "paddock/sys_logger.h"

namespace paddock {
namespace {

constexpr mode_t kMode = 0640;
// What the status and the milliseconds add to a line that is begun.
constexpr std::size_t kEndOfLine = 128;
// Lines that could not be written, kept in memory.
constexpr std::size_t kMostOwed = 1000;

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

// Whether the last line of the file has no end: a daemon could not write all of it.
bool endsInOpenLine(int file) {
  struct stat status {};
  char last = 0;
  if (::fstat(file, &status) != 0 || status.st_size == 0) return false;
  return ::pread(file, &last, 1, status.st_size - 1) == 1 && last != '\n';
}

// Whether the file can become so much longer, as an errno. The room is kept for it.
int roomFor(int file, std::size_t bytes) {
  struct stat status {};
  if (::fstat(file, &status) != 0) return errno;
  const int error = errnoOf([&] {
    return ::fallocate(file, FALLOC_FL_KEEP_SIZE, status.st_size, static_cast<off_t>(bytes));
  });
  if (error != EOPNOTSUPP && error != ENOSYS) return error;
  struct statvfs volume {};
  if (::fstatvfs(file, &volume) != 0) return errno;
  if ((volume.f_flag & ST_RDONLY) != 0) return EROFS;
  const auto blocks = ::geteuid() == 0 ? volume.f_bfree : volume.f_bavail;
  return blocks * volume.f_frsize >= bytes ? 0 : ENOSPC;
}

bool isAbout(const std::vector<std::string>& lines, const std::string& request) {
  const std::string member = "\"request\":\"" + request + '"';
  return std::any_of(lines.begin(), lines.end(), [&member](const std::string& line) {
    return line.find(member) != std::string::npos;
  });
}

}  // namespace

AuditLog::AuditLog(std::string path, const std::string& begunFolder)
    : path_(std::move(path)), file_(openLog(path_)), lineOpen_(endsInOpenLine(file_.get())) {
  if (begunFolder.empty()) return;
  begun_.emplace(begunFolder);
  writeInterrupted();
}

AuditLog::~AuditLog() {
  for (const AuditEntry& entry : refusals_.all()) append(entry);
}

void AuditLog::writeInterrupted() {
  const auto kept = begun_->kept();
  if (kept.empty()) return;
  const auto written = newest(kNewestBytes);
  std::deque<Owed> owed;
  for (const auto& [request, begun] : kept) {
    auto line = interruptedLine(begun);
    // Without a whole line it was not begun; the other had come to its end.
    if (!line || isAbout(written, request)) {
      begun_->forget(request);
      continue;
    }
    logMessage(4, "request " + request + " was interrupted by the end of the daemon: " + *line);
    owed.push_back({request, std::move(*line)});
  }
  const MutexLock lock(mutex_);
  owed_ = std::move(owed);
  if (const int error = writeOwed(); error != 0)
    logMessage(3,
               std::string("audit log not written: ") + systemError(error, "write", path_).what());
}

void AuditLog::reopen() {
  try {
    FileDescriptor file = openLog(path_);
    const MutexLock lock(mutex_);
    file_ = std::move(file);
    lineOpen_ = endsInOpenLine(file_.get());
  } catch (const std::exception& error) {
    logMessage(3, std::string("audit log not opened again: ") + error.what());
  }
}

std::vector<std::string> AuditLog::newest(std::size_t limit) const {
  FileDescriptor file;
  {
    const MutexLock lock(mutex_);
    file = FileDescriptor(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 3));
  }
  if (!file) throw systemError(errno, "open", path_);
  return lastLines(endOf(file.get(), path_), limit);
}

void AuditLog::write(const AuditEntry& entry) {
  const MutexLock lock(mutex_);
  append(entry);
}

void AuditLog::writeRefusal(const AuditEntry& entry) {
  const MutexLock lock(mutex_);
  const auto now = RefusalRate::Clock::now();
  for (const AuditEntry& counted : refusals_.due(now)) append(counted);
  if (refusals_.take(entry, now)) append(entry);
}

void AuditLog::tick() {
  const MutexLock lock(mutex_);
  for (const AuditEntry& counted : refusals_.due(RefusalRate::Clock::now())) append(counted);
  (void)writeOwed();  // it was said when it failed first
}

void AuditLog::append(const AuditEntry& entry) {
  const std::string line = auditLine(entry);
  const int error = appendLine(entry, line);
  if (error == 0) return;
  logMessage(3, std::string("audit log not written: ") + systemError(error, "write", path_).what());
  if (underWay_.contains(entry.request) && owed_.size() < kMostOwed)
    owed_.push_back({entry.request, line});
}

// In the order in which things happened: nothing before what is owed. What is promised to changes
// that are under way is left to them.
int AuditLog::appendLine(const AuditEntry& entry, const std::string& line) {
  if (const int error = writeOwed(); error != 0) return error;
  const auto change = underWay_.find(entry.request);
  const bool promised = change != underWay_.end() && change->second.required;
  if (!promised && reserved() > 0) {
    if (const int error = roomFor(file_.get(), reserved() + line.size()); error != 0) return error;
  }
  return writeLine(line, promised);
}

int AuditLog::writeOwed() {
  while (!owed_.empty()) {
    const int error = writeLine(owed_.front().line, true);
    if (error != 0) return error;
    // The end of one that is under way forgets it.
    if (begun_ && !underWay_.contains(owed_.front().request)) begun_->forget(owed_.front().request);
    owed_.pop_front();
  }
  return 0;
}

int AuditLog::writeLine(std::string line, bool durable) {
  if (const int error = reopenWhenGone(); error != 0) return error;
  if (lineOpen_) line.insert(line.begin(), '\n');
  // One call per line, so that lines never mix.
  const int file = file_.get();
  const auto written =
      retryOnInterrupt([file, &line] { return ::write(file, line.data(), line.size()); });
  const int error = written < 0 ? errno : ENOSPC;
  if (written == static_cast<ssize_t>(line.size())) {
    lineOpen_ = false;
    return durable ? errnoOf([file] { return ::fdatasync(file); }) : 0;
  }
  lineOpen_ = lineOpen_ || written > 0;
  return error;
}

// Output to an unlinked file would be lost.
int AuditLog::reopenWhenGone() {
  struct stat status {};
  if (::fstat(file_.get(), &status) != 0) return errno;
  if (status.st_nlink > 0) return 0;
  try {
    file_ = openLog(path_);
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  lineOpen_ = endsInOpenLine(file_.get());
  logMessage(4, "the audit log " + path_ + " was deleted, and is made again");
  return 0;
}

std::size_t AuditLog::reserved() const {
  std::size_t sum = 0;
  for (const auto& [request, change] : underWay_) sum += change.reserved;
  return sum;
}

int AuditLog::makeSure(std::size_t bytes) {
  if (const int error = writeOwed(); error != 0) return error;
  if (const int error = reopenWhenGone(); error != 0) return error;
  return roomFor(file_.get(), reserved() + bytes);
}

void AuditLog::begin(const AuditEntry& entry, bool required) {
  const std::string line = begunLine(entry);
  const std::size_t bytes = required ? line.size() + kEndOfLine : 0;
  {
    const MutexLock lock(mutex_);
    if (const int error = required ? makeSure(bytes) : 0; error != 0)
      throw systemError(error, "write", path_);
    underWay_[entry.request] = {bytes, required};
  }
  if (!begun_) return;
  try {
    begun_->keep(entry.request, line, required);
  } catch (const std::system_error& error) {
    if (required) {
      end(entry.request);
      throw;
    }
    logMessage(3, std::string("a change leaves no trace while it is made: ") + error.what());
  }
}

void AuditLog::end(const std::string& request) {
  const MutexLock lock(mutex_);
  underWay_.erase(request);
  const bool isOwed = std::any_of(owed_.begin(), owed_.end(),
                                  [&request](const Owed& owed) { return owed.request == request; });
  if (begun_ && !isOwed) begun_->forget(request);
}

AuditedChange::AuditedChange(AuditLog& log, const AuditEntry& entry, bool required)
    : log_(log), request_(entry.request) {
  log_.begin(entry, required);
}

AuditedChange::~AuditedChange() { log_.end(request_); }

}  // namespace paddock
