#include "platform/linux/privileges/walk_rounds.h"

#include <algorithm>
#include <ctime>
#include <thread>

namespace paddock {

namespace {

// The coarsest fraction of a second that file systems keep, and the coarsest whole seconds.
constexpr std::uint32_t kFraction = 10'000'000;
constexpr std::int64_t kWholeSeconds = 2;

// What stands for the folder: its inode's number as it is, where a tree has one device.
std::uint64_t keyOf(const ObjectStatus& folder) {
  constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15;  // 2^64 / golden ratio
  return folder.inode ^ (folder.device * kMultiplier);
}

// By the clock that the kernel takes the times of local file systems from.
FileTime now() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &time);
  const auto nanoseconds = static_cast<std::uint32_t>(time.tv_nsec);
  return {time.tv_sec, nanoseconds - nanoseconds % kFraction};
}

}  // namespace

bool VisitedFolders::add(const ObjectStatus& folder) {
  const std::uint64_t key = keyOf(folder);
  auto& part = parts_[key % parts_.size()];
  const MutexLock lock(part.mutex);
  if (count_ >= most_) {
    const bool isNew = !part.folders.contains(key);
    if (isNew) isComplete_ = false;
    return isNew;
  }
  const bool isNew = part.folders.insert(key);
  if (isNew) ++count_;
  return isNew;
}

bool VisitedFolders::has(const ObjectStatus& folder) const {
  const std::uint64_t key = keyOf(folder);
  const Part& part = partOf(key);
  const MutexLock lock(part.mutex);
  return part.folders.contains(key);
}

void WalkRounds::begin() {
  ++number_;
  startBefore_ = start_;
  start_ = now();
  isDisturbed_ = false;
}

bool WalkRounds::mayBeSince(const FileTime& time, const FileTime& start) {
  if (time.nanoseconds == 0) return time.seconds + kWholeSeconds > start.seconds;
  return time >= start;
}

void WalkRounds::noteChange(const FileTime& time) {
  isDisturbed_ = true;
  if (time.nanoseconds == 0) isCoarse_ = true;
}

bool WalkRounds::goOn(const std::atomic<bool>& stop) const {
  constexpr std::chrono::milliseconds kStep(5);
  if (!isDisturbed_ || isLast()) return false;
  std::chrono::milliseconds pause = pause_ * (1U << (number_ - 1));
  if (isCoarse_)
    pause = std::max(pause, std::chrono::milliseconds(std::chrono::seconds(kWholeSeconds + 1)));
  const auto end = std::chrono::steady_clock::now() + pause;
  while (!stop && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(kStep);
  return !stop;
}

}  // namespace paddock
