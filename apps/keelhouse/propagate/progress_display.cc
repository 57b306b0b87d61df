#include "keelhouse/propagate/progress_display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "keelhouse/propagate/run_text.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kClearLine = "\r\x1B[K";
constexpr std::chrono::seconds kBetweenLines{10};
constexpr std::size_t kUsualColumns = 80;

// Asked for each time: the window may have another size by now.
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
