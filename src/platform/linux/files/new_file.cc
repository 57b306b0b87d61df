#include "platform/linux/files/new_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdio>
#include <utility>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr int kAttempts = 100;
constexpr std::size_t kRandomLetters = 12;
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz234567";
constexpr mode_t kOwnerAlone = 0600;

int randomSuffix(std::string& suffix) {
  std::array<unsigned char, kRandomLetters> bytes{};
  const int error = errnoOf([&] { return ::getrandom(bytes.data(), bytes.size(), 0); });
  if (error != 0) return error;
  suffix.clear();
  for (const unsigned char byte : bytes) suffix += kLetters[byte % kLetters.size()];
  return 0;
}

}  // namespace

NewFile::NewFile(int folder, std::string name) : folder_(folder), name_(std::move(name)) {}

NewFile::~NewFile() {
  if (!temporaryName_.empty()) ::unlinkat(folder_, temporaryName_.c_str(), 0);
}

namespace {

// ".NAME.XXXXXXXXXXXX", the name cut so that a long one still fits.
int temporaryNameFor(const std::string& name, std::string& temporary) {
  std::string suffix;
  if (const int error = randomSuffix(suffix); error != 0) return error;
  temporary = "." + name.substr(0, NAME_MAX - kRandomLetters - 2) + "." + suffix;
  return 0;
}

}  // namespace

int NewFile::create() {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string name;
    if (const int error = temporaryNameFor(name_, name); error != 0) return error;
    int descriptor = -1;
    const int error = errnoOf(
        [&] {
          return ::openat(folder_, name.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerAlone);
        },
        &descriptor);
    if (error == EEXIST) continue;
    if (error != 0) return error;
    file_ = FileDescriptor(descriptor);
    temporaryName_ = std::move(name);
    return 0;
  }
  return EEXIST;
}

int NewFile::write(std::string_view contents) {
  synced_ = false;
  while (!contents.empty()) {
    std::size_t written = 0;
    const int error =
        errnoOf([&] { return ::write(file_.get(), contents.data(), contents.size()); }, &written);
    if (error != 0) return error;
    contents.remove_prefix(written);
  }
  return 0;
}

int NewFile::setOwnership(const FileOwnership& ownership) {
  const int error =
      errnoOf([&] { return ::fchown(file_.get(), ownership.owner, ownership.group); });
  // After the owner, because a change of owner clears bits.
  return error != 0 ? error : setMode(ownership.mode);
}

int NewFile::setMode(mode_t mode) {
  synced_ = false;
  return errnoOf([&] { return ::fchmod(file_.get(), mode); });
}

int NewFile::sync() {
  const int error = synced_ ? 0 : errnoOf([&] { return ::fsync(file_.get()); });
  synced_ = error == 0;
  return error;
}

int NewFile::syncFolder() const {
  const int error = errnoOf([&] { return ::fsync(folder_); });
  // File systems without a sync of folders say so in these ways.
  return error == EINVAL || error == ENOTSUP ? 0 : error;
}

int NewFile::putInPlace() {
  if (const int error = sync(); error != 0) return error;
  const int error = putInPlaceUnsynced();
  return error != 0 ? error : syncFolder();
}

int NewFile::putInPlaceUnsynced() {
  const int error =
      errnoOf([&] { return ::renameat(folder_, temporaryName_.c_str(), folder_, name_.c_str()); });
  if (error == 0) temporaryName_.clear();
  return error;
}

int NewFile::putInEmptyPlace() {
  if (const int error = sync(); error != 0) return error;
  // linkat(2) never replaces, on every file system that has hard links.
  const int error =
      errnoOf([&] { return ::linkat(folder_, temporaryName_.c_str(), folder_, name_.c_str(), 0); });
  if (error != 0) return error;
  ::unlinkat(folder_, std::exchange(temporaryName_, std::string()).c_str(), 0);
  return syncFolder();
}

// For file systems that cannot exchange names: a file that comes between the two calls is lost.
int NewFile::replaceKeepingLink(std::string& gaveWay) {
  if (const int error = temporaryNameFor(name_, gaveWay); error != 0) return error;
  const int error =
      errnoOf([&] { return ::linkat(folder_, name_.c_str(), folder_, gaveWay.c_str(), 0); });
  if (error != 0) return error;
  const int unplaced =
      errnoOf([&] { return ::renameat(folder_, temporaryName_.c_str(), folder_, name_.c_str()); });
  if (unplaced != 0) {
    ::unlinkat(folder_, gaveWay.c_str(), 0);
    return unplaced;
  }
  temporaryName_.clear();
  return 0;
}

int NewFile::exchangeAgain(const std::string& gaveWay) {
  return errnoOf([&] {
    return ::renameat2(folder_, gaveWay.c_str(), folder_, name_.c_str(), RENAME_EXCHANGE);
  });
}

int NewFile::exchange(std::string& gaveWay) {
  gaveWay.clear();
  if (const int error = sync(); error != 0) return error;
  const int error = exchangeAgain(temporaryName_);
  if (error == EINVAL || error == ENOSYS || error == ENOTSUP) return replaceKeepingLink(gaveWay);
  if (error != 0) return error;
  gaveWay = std::exchange(temporaryName_, std::string());
  return 0;
}

}  // namespace paddock
