#include "quotascan/quota_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <thread>
#include <utility>

#include "base/system_call.h"
#include "quotascan/quotascan_failure.h"

namespace paddock::quotascan {

namespace {

// How the kernel's own files of quotas begin, little-endian.
constexpr std::array<std::uint32_t, kQuotaTypes> kKernelMagic = {0x111FC0D9, 0x2719C0D9};

std::string separated(const std::string& folder) {
  return folder.empty() || folder.back() != '/' ? folder + "/" : folder;
}

const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISLNK(mode)) return "a symbolic link, which is not followed";
  return "not a regular file";
}

// Returns 0 or an errno: EWOULDBLOCK when another process holds the lock all the time.
int lockWithin(int file, std::chrono::milliseconds patience) {
  constexpr std::chrono::milliseconds kPause{10};
  for (auto left = patience; left.count() > 0; left -= kPause) {
    std::this_thread::sleep_for(kPause);
    const int error = errnoOf([&] { return ::flock(file, LOCK_EX | LOCK_NB); });
    if (error != EWOULDBLOCK) return error;
  }
  return EWOULDBLOCK;
}

const char* adviceFor(int error) {
  if (error == EACCES) return "run quotascan as root";
  return error == EPERM ? "it is immutable, or the kernel keeps quotas of its own in it" : "";
}

}  // namespace

std::string quotaFileName(QuotaType type) {
  return std::string(qfname) + "." + qfextension[static_cast<std::size_t>(type)];
}

std::string replacementName(const std::string& quotaFileName) {
  return quotaFileName + ".quotascan";
}

QuotaFile::QuotaFile(const std::string& volumePath, QuotaType type)
    : type_(type), name_(quotaFileName(type)), path_(separated(volumePath) + name_) {}

std::optional<QuotaFile> QuotaFile::open(int volume, const std::string& volumePath, QuotaType type,
                                         const Waiting& waiting) {
  QuotaFile file(volumePath, type);
  do {
    if (!file.openAndLock(volume, waiting)) return std::nullopt;
    // The run that had the lock has put another file in place.
  } while (!file.isInPlace(volume));
  file.readHeader();
  return file;
}

bool QuotaFile::openAndLock(int volume, const Waiting& waiting) {
  struct stat status {};
  int error =
      errnoOf([&] { return ::fstatat(volume, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW); });
  if (error == ENOENT) return false;
  // Not even opened when it is something else: a device may act on that.
  if (error == 0 && !S_ISREG(status.st_mode)) {
    throw Failure(path_ + " is " + kindOf(status.st_mode) + "; it is left as it is");
  }
  int descriptor = -1;
  if (error == 0) {
    // For writing, so that a volume or a file that cannot be changed is known before it is counted.
    constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    error = errnoOf([&] { return ::openat(volume, name_.c_str(), kFlags); }, &descriptor);
  }
  if (error != 0) throw failureOf("open", path_, error, adviceFor(error));
  file_ = FileDescriptor(descriptor);
  lock(waiting);
  return true;
}

void QuotaFile::lock(const Waiting& waiting) const {
  int error = errnoOf([&] { return ::flock(file_.get(), LOCK_EX | LOCK_NB); });
  if (error == EWOULDBLOCK) {
    waiting.begins();
    error = waiting.atMost ? lockWithin(file_.get(), *waiting.atMost)
                           : errnoOf([&] { return ::flock(file_.get(), LOCK_EX); });
  }
  if (error == EWOULDBLOCK) throw Failure(path_ + " is being brought up to date by another run");
  if (error != 0) throw failureOf("lock", path_, error);
}

bool QuotaFile::isInPlace(int volume) const {
  struct stat mine {};
  struct stat there {};
  return ::fstat(file_.get(), &mine) == 0 &&
         ::fstatat(volume, name_.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
         mine.st_dev == there.st_dev && mine.st_ino == there.st_ino;
}

void QuotaFile::readHeader() {
  const std::string advice =
      "; it is left as it is. Put a good copy in its place, or move it away and switch quotas on "
      "again, which makes a new one";
  QuotaSlot slot{};
  struct stat status {};
  std::size_t count = 0;
  int error = errnoOf([&] { return ::fstat(file_.get(), &status); });
  if (error == 0) {
    error = errnoOf([&] { return ::pread(file_.get(), slot.data(), slot.size(), 0); }, &count);
  }
  if (error != 0) throw failureOf("read", path_, error);
  if (!S_ISREG(status.st_mode)) throw Failure(path_ + " is not a regular file" + advice);
  // In a folder that others may write, a file of theirs would disclose the usage of all users.
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
    throw Failure(path_ + " belongs to the user " + std::to_string(status.st_uid) +
                  " and not to root" + advice);
  }
  if (count < slot.size()) {
    throw Failure(path_ + " has " + std::to_string(count) + " bytes, which is no quota file" +
                  advice);
  }
  header_ = decodeQuotaHeader(slot);
  if (header_.magic == kKernelMagic[static_cast<std::size_t>(type_)]) {
    throw Failure(path_ + " is the kernel's own quota file, and is left as it is");
  }
  if (!isQuotaHeaderOf(type_, header_.magic, header_.version, header_.maxentries)) {
    throw Failure(path_ + " does not begin as a quota file for " +
                  (type_ == kUserQuota ? "users" : "groups") + " does" + advice);
  }
  if (static_cast<std::uint64_t>(status.st_size) != quotaFileSize(header_.maxentries)) {
    throw Failure(path_ + " has " + std::to_string(status.st_size) + " bytes and not the " +
                  std::to_string(quotaFileSize(header_.maxentries)) + " that its header says" +
                  advice);
  }
}

void QuotaFile::checkUnchanged(int volume) {
  if (!isInPlace(volume)) {
    throw Failure(path_ + " was replaced while the volume was counted; run quotascan again");
  }
  readHeader();
}

}  // namespace paddock::quotascan
