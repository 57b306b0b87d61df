#include "quotascan/replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <string_view>
#include <vector>

#include "base/system_call.h"
#include "quotascan/quotascan_failure.h"

namespace paddock::quotascan {

namespace {

constexpr mode_t kOwnerAlone = 0600;
constexpr mode_t kPermissionBits = 07777;

// The names of the extended attributes, each ended by a NUL; none where there are no such things.
int listAttributes(int file, std::string& names) {
  std::size_t size = 0;
  int error = errnoOf([&] { return ::flistxattr(file, nullptr, 0); }, &size);
  if (error == EOPNOTSUPP) return 0;
  names.resize(size);
  if (error == 0 && size > 0) {
    error = errnoOf([&] { return ::flistxattr(file, names.data(), names.size()); }, &size);
    names.resize(error == 0 ? size : 0);
  }
  return error;
}

int copyAttribute(int from, int to, const char* name) {
  std::size_t size = 0;
  int error = errnoOf([&] { return ::fgetxattr(from, name, nullptr, 0); }, &size);
  std::vector<char> value(size);
  if (error == 0 && size > 0) {
    error = errnoOf([&] { return ::fgetxattr(from, name, value.data(), value.size()); }, &size);
  }
  if (error == 0) error = errnoOf([&] { return ::fsetxattr(to, name, value.data(), size, 0); });
  // Removed concurrently.
  return error == ENODATA ? 0 : error;
}

}  // namespace

Replacement::HeldSignals::HeldSignals() {
  sigset_t held;
  ::sigemptyset(&held);
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXCPU}) ::sigaddset(&held, signal);
  ::pthread_sigmask(SIG_BLOCK, &held, &before_);
}

Replacement::HeldSignals::~HeldSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

Replacement::Replacement(int volume, const QuotaFile& replaced)
    : volume_(volume),
      replacedName_(replaced.name()),
      name_(replacementName(replaced.name())),
      path_(replacementName(replaced.path())) {
  create();
  try {
    takeAttributes(replaced.descriptor());
    takeOwnership(replaced.descriptor());
  } catch (...) {
    ::unlinkat(volume_, name_.c_str(), 0);
    throw;
  }
}

Replacement::~Replacement() {
  if (isThere_) ::unlinkat(volume_, name_.c_str(), 0);
}

void Replacement::check(int error) const {
  if (error != 0) throw failureOf("write", path_, error, "the file that was there stays");
}

void Replacement::create() {
  // The leftover of a killed run.
  ::unlinkat(volume_, name_.c_str(), 0);
  int descriptor = -1;
  check(errnoOf(
      [&] {
        return ::openat(volume_, name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                        kOwnerAlone);
      },
      &descriptor));
  file_ = FileDescriptor(descriptor);
  isThere_ = true;
}

void Replacement::takeAttributes(int from) const {
  std::string names;
  check(listAttributes(from, names));
  for (std::size_t at = 0; at < names.size();) {
    const std::string name = names.c_str() + at;
    check(copyAttribute(from, file_.get(), name.c_str()));
    at += name.size() + 1;
  }
}

void Replacement::takeOwnership(int from) const {
  struct stat status {};
  check(errnoOf([&] { return ::fstat(from, &status); }));
  check(errnoOf([&] { return ::fchown(file_.get(), status.st_uid, status.st_gid); }));
  // After the owner, because a change of owner clears bits.
  check(errnoOf([&] { return ::fchmod(file_.get(), status.st_mode & kPermissionBits); }));
}

void Replacement::putInPlace() {
  check(errnoOf([&] { return ::fsync(file_.get()); }));
  check(
      errnoOf([&] { return ::renameat(volume_, name_.c_str(), volume_, replacedName_.c_str()); }));
  isThere_ = false;
  const int error = errnoOf([&] { return ::fsync(volume_); });
  // File systems without a sync of folders say so in these ways.
  if (error != EINVAL && error != ENOTSUP) check(error);
}

}  // namespace paddock::quotascan
