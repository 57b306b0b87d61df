#include "keelhouse/propagate/progress_display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "keelhouse/propagate/run_text.h"

namespace paddock::keelhouse {

namespace {

constexpr std::chrono::seconds kWindow{10};
constexpr std::chrono::milliseconds kShortest{500};

}  // namespace

void RateMeter::note(Time time, std::uint64_t done) {
  samples_.push_back({time, done});
  while (samples_.size() > 2 && time - samples_[1].time >= kWindow) samples_.pop_front();
}

std::optional<double> RateMeter::rate() const {
  if (samples_.empty()) return std::nullopt;
  const auto passed = samples_.back().time - samples_.front().time;
  const std::uint64_t before = samples_.front().done;
  if (passed < kShortest || samples_.back().done < before) return std::nullopt;
  return static_cast<double>(samples_.back().done - before) /
         std::chrono::duration<double>(passed).count();
}

namespace {

constexpr const char* kClearLine = "\r\x1B[K";
constexpr std::chrono::seconds kBetweenLines{10};
constexpr std::size_t kUsualColumns = 80;

// Queried each time: the window may have been resized.
std::size_t terminalColumns() {
  winsize size{};
  const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  // What is written into the last column may begin a new line.
  return (known ? size.ws_col : kUsualColumns) - 1;
}

}  // namespace

void ProgressDisplay::show(const RunStatus& run, RateMeter::Time now) {
  if (session_.json || (run.done == 0 && run.total == 0)) return;
  meter_.note(now, run.done);
  session_.terminal ? showBar(run) : showLine(run, now);
}

void ProgressDisplay::showBar(const RunStatus& run) {
  session_.out << kClearLine << progressBar(run, meter_.rate(), terminalColumns()) << std::flush;
  hasBar_ = true;
}

// The end has a line of its own.
void ProgressDisplay::showLine(const RunStatus& run, RateMeter::Time now) {
  if (run.completed || (lastLine_ && now - *lastLine_ < kBetweenLines)) return;
  session_.out << progressText(run, meter_.rate()) << std::endl;
  lastLine_ = now;
}

void ProgressDisplay::clear() {
  if (hasBar_) session_.out << kClearLine << std::flush;
  hasBar_ = false;
}

}  // namespace paddock::keelhouse
