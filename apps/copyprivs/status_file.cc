#include "copyprivs/status_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <system_error>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
#include "platform/linux/files/new_file.h"
#include "wire/property_list.h"

namespace paddock::copyprivs {

namespace {

constexpr mode_t kMode = 0600;

std::string textOf(int error) { return std::generic_category().message(error); }

}  // namespace

StatusFile::StatusFile(const std::string& path) : path_(path) {
  const std::size_t slash = path.rfind('/');
  name_ = path.substr(slash + 1);
  std::string folder = ".";
  if (slash != std::string::npos) folder = path.substr(0, slash + 1);
  int descriptor = -1;
  const int error = errnoOf(
      [&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }, &descriptor);
  folder_ = FileDescriptor(descriptor);
  if (error != 0) {
    fail(textOf(error));
  } else if (name_.empty() || name_ == "." || name_ == "..") {
    fail("it is a folder");
  } else {
    (void)mayBeReplaced();
  }
}

void StatusFile::fail(const std::string& what) {
  failure_ = "cannot write the status file " + path_ + ": " + what;
}

bool StatusFile::mayBeReplaced() {
  struct stat status {};
  const int error = errnoOf(
      [&] { return ::fstatat(folder_.get(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW); });
  if (error == ENOENT) {
    isUnwanted_ = wasWritten_;
    return !isUnwanted_;
  }
  if (error != 0) {
    fail(textOf(error));
  } else if (!S_ISREG(status.st_mode) || status.st_nlink != 1) {
    fail("what stands there is no file of its own");
  } else if (status.st_uid != ::geteuid()) {
    fail("it belongs to somebody else");
  }
  return failure_.empty();
}

void StatusFile::replace(std::string_view contents, bool isLast) {
  if (!failure_.empty() || isUnwanted_ || !mayBeReplaced()) return;
  const int error = write(contents, isLast);
  if (error == 0) {
    wasWritten_ = true;
    return;
  }
  // Space may become available before the last one.
  if (error != ENOSPC && error != EDQUOT) fail(textOf(error));
  if (isLast && failure_.empty()) fail(textOf(error));
}

int StatusFile::write(std::string_view contents, bool isLast) const {
  NewFile file(folder_.get(), name_);
  if (const int error = file.create(); error != 0) return error;
  if (const int error = file.write(contents); error != 0) return error;
  if (const int error = file.setMode(kMode); error != 0) return error;
  // Intermediate states are soon overwritten.
  return isLast ? file.putInPlace() : file.putInPlaceUnsynced();
}

namespace {

// With the last one, no more than four in a second.
constexpr std::chrono::milliseconds kInterval(350);

}  // namespace

StatusWriter::StatusWriter(StatusFile& file, std::function<Dictionary()> status)
    : file_(file), status_(std::move(status)), thread_([this] { run(); }) {}

void StatusWriter::stop() {
  {
    const MutexLock lock(mutex_);
    isEnding_ = true;
  }
  ending_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void StatusWriter::run() {
  MutexLock lock(mutex_);
  do {
    file_.replace(wire::writePropertyList(status_()), false);
  } while (!waitForEnd());
}

bool StatusWriter::waitForEnd() {
  const auto next = std::chrono::steady_clock::now() + kInterval;
  while (!isEnding_ && ending_.wait_until(mutex_, next)) continue;
  return isEnding_;
}

}  // namespace paddock::copyprivs
