#include "base/trusted_path.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/system_call.h"
#include "base/text.h"

namespace paddock {

namespace {

constexpr int kMostLinks = 40;
constexpr uid_t kRoot = 0;

std::atomic<bool> gAcceptsAll = false;

std::string byDescriptor(const FileDescriptor& descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor.get());
}

std::string octal(mode_t mode) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode) & 07777U);
  return text.data();
}

class TrustedWalk {
 public:
  explicit TrustedWalk(const std::string& path) : asked_(path) { prepend(path); }

  FileDescriptor open() {
    restart();
    while (!rest_.empty()) {
      const std::string name = std::move(rest_.back());
      rest_.pop_back();
      step(name);
    }
    FileDescriptor object(retryOnInterrupt([this] {
      return ::open(byDescriptor(at_).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    }));
    if (!object) throw systemError(errno, "open", printable(asked_));
    return object;
  }

 private:
  // The components of `path` come next.
  void prepend(std::string_view path) {
    std::vector<std::string> names;
    while (!path.empty()) {
      const std::size_t slash = path.find('/');
      const std::string_view name = path.substr(0, slash);
      path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
      if (!name.empty() && name != ".") names.emplace_back(name);
    }
    rest_.insert(rest_.end(), names.rbegin(), names.rend());
  }

  void restart() {
    at_ = FileDescriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!at_) throw systemError(errno, "open", "/");
    shown_.clear();
    requireTrusted(statusOf(at_));
  }

  void step(const std::string& name) {
    FileDescriptor next(::openat(at_.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!next) throw systemError(errno, "open", printable(asked_));
    const std::string parent = shown_;
    shown_ = name == ".." ? shown_.substr(0, shown_.rfind('/') + 1) : shown_ + "/" + name;
    if (name == ".." && !shown_.empty()) shown_.pop_back();
    const struct stat status = statusOf(next);
    requireTrusted(status);
    if (S_ISLNK(status.st_mode)) {
      shown_ = parent;
      follow(next);
    } else {
      at_ = std::move(next);
    }
  }

  void follow(const FileDescriptor& link) {
    if (++links_ > kMostLinks) throw systemError(ELOOP, "open", printable(asked_));
    std::string target(PATH_MAX, '\0');
    const ssize_t size = ::readlinkat(link.get(), "", target.data(), target.size());
    if (size < 0) throw systemError(errno, "readlink", printable(asked_));
    target.resize(static_cast<std::size_t>(size));
    prepend(target);
    if (target.starts_with('/')) restart();
  }

  struct stat statusOf(const FileDescriptor& descriptor) const {
    struct stat status {};
    if (::fstat(descriptor.get(), &status) != 0)
      throw systemError(errno, "stat", printable(asked_));
    return status;
  }

  void requireTrusted(const struct stat& status) const {
    if (gAcceptsAll) return;
    const std::string path = shown_.empty() ? "/" : printable(shown_);
    if (status.st_uid != kRoot && status.st_uid != user_) {
      const std::string owners =
          user_ == kRoot ? "not to root" : "neither to root nor to user " + std::to_string(user_);
      throw UntrustedPath(path + " belongs to user " + std::to_string(status.st_uid) + ", " +
                          owners + ": chown root " + path);
    }
    // A link has no permissions of its own.
    if (S_ISLNK(status.st_mode) || (status.st_mode & othersBits()) == 0) return;
    const bool isAbove = S_ISDIR(status.st_mode) && !rest_.empty();
    if (isAbove && (status.st_mode & S_ISVTX) != 0) return;
    throw UntrustedPath("others can change " + path + " (mode " + octal(status.st_mode) +
                        "): chmod go-w " + path);
  }

  mode_t othersBits() const { return user_ == kRoot ? S_IWGRP | S_IWOTH : S_IWOTH; }

  const std::string asked_;
  const uid_t user_ = ::geteuid();
  std::vector<std::string> rest_;  // the next component last
  FileDescriptor at_;
  std::string shown_;  // its path, without links; empty for "/"
  int links_ = 0;
};

}  // namespace

FileDescriptor openTrusted(const std::string& path) {
  if (path.empty()) throw systemError(ENOENT, "open", path);
  return TrustedWalk(std::filesystem::absolute(path).string()).open();
}

std::string acceptOpenProgram(const std::string& program) {
  std::string why = whyUntrusted(program);
  if (!why.empty()) gAcceptsAll = true;
  return why;
}

std::string whyUntrusted(const std::string& path) {
  try {
    (void)openTrusted(path);
  } catch (const UntrustedPath& untrusted) {
    return untrusted.what();
  } catch (const std::system_error&) {
    return {};
  }
  return {};
}

std::optional<std::string> readTrustedFile(const std::string& path, std::size_t limit) {
  FileDescriptor file;
  try {
    file = openTrusted(path);
  } catch (const std::system_error& error) {
    if (error.code().value() == ENOENT || error.code().value() == ENOTDIR) return std::nullopt;
    throw;
  }
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throw systemError(errno, "stat", path);
  if (!S_ISREG(status.st_mode)) throw systemError(EINVAL, "not a regular file:", path);
  if (static_cast<std::uint64_t>(status.st_size) > limit) throw systemError(EFBIG, "read", path);
  return readSmallFile(byDescriptor(file), limit);
}

}  // namespace paddock
