#include "quotascan/progress.h"

#include <chrono>

#include "quotascan/summary.h"

namespace paddock::quotascan {

namespace {

constexpr std::chrono::milliseconds kInterval(200);
constexpr const char* kClearLine = "\r\x1B[K";

}  // namespace

Progress::Progress(std::ostream& terminal, const std::atomic<std::uint64_t>& objects)
    : terminal_(terminal), objects_(objects), thread_([this] { show(); }) {}

Progress::~Progress() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  ending_.notify_one();
  thread_.join();
}

void Progress::show() {
  std::unique_lock lock(mutex_);
  while (!ending_.wait_for(lock, kInterval, [this] { return isEnding_; })) {
    terminal_ << kClearLine << grouped(objects_) << " objects counted" << std::flush;
  }
  terminal_ << kClearLine << std::flush;
}

}  // namespace paddock::quotascan
