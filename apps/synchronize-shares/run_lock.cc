#include "synchronize-shares/run_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <string_view>
#include <thread>

#include "base/file_access.h"
#include "base/system_call.h"

namespace paddock::synchronizer {

namespace {

constexpr const char* kName = "synchronize-shares.lock";
constexpr mode_t kFolderMode = 0755;
// No other user can open it, and so no other user can hold the lock.
constexpr mode_t kFileMode = 0600;
constexpr std::chrono::milliseconds kPause{20};

}  // namespace

RunLock::RunLock(const std::string& folder, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  const std::string path = folder + "/" + kName;
  const FileDescriptor parent = openOwnFolder(folder, kFolderMode);
  int descriptor = -1;
  int error = errnoOf(
      [&parent] {
        return ::openat(parent.get(), kName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode);
      },
      &descriptor);
  if (error != 0) throw systemError(error, "cannot open", path);
  file_ = FileDescriptor(descriptor);
  while ((error = errnoOf([&] { return ::flock(descriptor, LOCK_EX | LOCK_NB); })) != 0) {
    if (error != EWOULDBLOCK) throw systemError(error, "cannot lock", path);
    if (std::chrono::steady_clock::now() >= deadline)
      throw systemError(ETIMEDOUT, "another run still holds", path);
    std::this_thread::sleep_for(kPause);
  }
}

namespace {

constexpr std::size_t kLongest = 64;

bool takeNumber(std::string_view& text, std::uint64_t& number, char end) {
  const auto [last, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const auto length = static_cast<std::size_t>(last - text.data());
  if (error != std::errc() || length == text.size() || text[length] != end) return false;
  text.remove_prefix(length + 1);
  return true;
}

}  // namespace

ToldChanges::ToldChanges(int lockFile) : file_(lockFile) {}

std::uint64_t ToldChanges::untold() const {
  const Counts counts = read();
  return counts.told < counts.changes ? counts.changes : 0;
}

void ToldChanges::add() {
  Counts counts = read();
  ++counts.changes;
  write(counts);
}

void ToldChanges::told(std::uint64_t change) {
  Counts counts = read();
  counts.told = std::max(counts.told, std::min(change, counts.changes));
  write(counts);
}

ToldChanges::Counts ToldChanges::read() const {
  std::array<char, kLongest> bytes{};
  std::size_t length = 0;
  const int error = errnoOf([&] { return ::pread(file_, bytes.data(), bytes.size(), 0); }, &length);
  if (error != 0) throw systemError(error, "cannot read", "the lock file");
  if (length == 0) return {};
  std::string_view text(bytes.data(), length);
  Counts counts;
  const bool isWhole =
      takeNumber(text, counts.changes, ' ') && takeNumber(text, counts.told, '\n') && text.empty();
  return isWhole ? counts : Counts{1, 0};
}

void ToldChanges::write(Counts counts) {
  const std::string text =
      std::to_string(counts.changes) + " " + std::to_string(counts.told) + "\n";
  // A write that is cut off leaves a text without its line end, which reads as untold.
  int error = errnoOf([this] { return ::ftruncate(file_, 0); });
  std::size_t written = 0;
  if (error == 0)
    error = errnoOf([&] { return ::pwrite(file_, text.data(), text.size(), 0); }, &written);
  if (error == 0 && written != text.size()) error = ENOSPC;
  if (error != 0) throw systemError(error, "cannot write", "the lock file");
}

}  // namespace paddock::synchronizer
