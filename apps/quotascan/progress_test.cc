#include "quotascan/progress.h"

#include <gmock/gmock.h>

#include <sstream>

namespace paddock::quotascan {
namespace {

using ::testing::EndsWith;
using ::testing::StartsWith;

// A stream that says when something was written to it.
class WatchedText : public std::stringbuf {
 public:
  void awaitText() {
    std::unique_lock lock(mutex_);
    written_.wait(lock, [this] { return isWritten_; });
  }

 protected:
  int sync() override {
    const std::lock_guard lock(mutex_);
    isWritten_ = true;
    written_.notify_one();
    return 0;
  }

 private:
  std::mutex mutex_;
  std::condition_variable written_;
  bool isWritten_ = false;
};

TEST(Progress, ShowsTheNumberAndTakesTheLineAwayAtTheEnd) {
  WatchedText text;
  std::ostream terminal(&text);
  const std::atomic<std::uint64_t> objects = 12345;
  {
    const Progress progress(terminal, objects);
    text.awaitText();
  }
  EXPECT_THAT(text.str(), StartsWith("\r\x1B[K12,345 objects counted"));
  EXPECT_THAT(text.str(), EndsWith("\r\x1B[K"));
}

}  // namespace
}  // namespace paddock::quotascan
