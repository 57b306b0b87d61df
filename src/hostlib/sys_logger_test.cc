#include "paddock/sys_logger.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>
#include <utility>
#include <vector>

#include "base/mutex.h"

namespace paddock {
namespace {

class SysLoggerLines : public testing::Test {
 protected:
  using Line = std::pair<int, std::string>;

  SysLoggerLines() {
    installLogSink([this](int priority, const std::string& line) {
      const MutexLock lock(mutex_);
      lines_.emplace_back(priority, line);
    });
  }
  ~SysLoggerLines() override {
    installLogSink(nullptr);
    setDebugLogging(false);
  }

  Mutex mutex_;
  std::vector<Line> lines_;
};

TEST_F(SysLoggerLines, PrioritiesAreReducedToTheirLowestThreeBits) {
  logMessage(3, "error");
  logMessage(11, "start failure");
  EXPECT_EQ(lines_, (std::vector<Line>{{3, "error"}, {3, "start failure"}}));
}

TEST_F(SysLoggerLines, DebugMessagesAreDroppedUnlessTheyAreOn) {
  logMessage(7, "dropped");
  setDebugLogging(true);
  logMessage(7, "kept");
  EXPECT_EQ(lines_, (std::vector<Line>{{7, "kept"}}));
}

TEST_F(SysLoggerLines, EscapedControlCharactersKeepMessageOnOneLine) {
  logMessage(6, std::string_view("a\nb\tc\0d\x7f\xc3\xa4", 10));
  EXPECT_EQ(lines_, (std::vector<Line>{{6, "a\\x0Ab\\x09c\\x00d\\x7F\xc3\xa4"}}));
}

// The name of a file, which anybody may have given, must not rewrite the line that it is in.
TEST_F(SysLoggerLines, NamesCannotReorderOrControlTheirLine) {
  // In two parts, so that they turn no line of this file around.
  const std::string general = "\xE2\x80";
  const std::string isolating = "\xE2\x81";
  const std::vector<std::pair<std::string, std::string>> attacks{
      {general + "\xAE", "\\xE2\\x80\\xAE"},
      {general + "\x8E", "\\xE2\\x80\\x8E"},
      {general + "\x8F", "\\xE2\\x80\\x8F"},
      {general + "\xA8", "\\xE2\\x80\\xA8"},
      {isolating + "\xA6", "\\xE2\\x81\\xA6"},
      {"\xD8\x9C", "\\xD8\\x9C"},
      {"\xC2\x9B", "\\xC2\\x9B"},
      {"\x9B", "\\x9B"}};
  for (const auto& [name, shown] : attacks) {
    lines_.clear();
    logMessage(4, "/srv/a" + name + "b is gone");
    EXPECT_EQ(lines_, (std::vector<Line>{{4, "/srv/a" + shown + "b is gone"}})) << shown;
  }
}

TEST_F(SysLoggerLines, ANewlineAtTheEndIsLeftOut) {
  logMessage(11, "cannot fork(x): no memory\n");
  logMessage(3, "\n");
  logMessage(3, "a\n\n");
  logMessage(3, "a\nb");
  EXPECT_EQ(lines_, (std::vector<Line>{
                        {3, "cannot fork(x): no memory"}, {3, ""}, {3, "a\\x0A"}, {3, "a\\x0Ab"}}));
}

TEST_F(SysLoggerLines, LinesCarryRequestIdOfTheirThread) {
  {
    const RequestIdScope outer("r1");
    {
      const RequestIdScope inner("r2");
      logMessage(6, "inner");
      std::thread([] { logMessage(6, "elsewhere"); }).join();
    }
    logMessage(6, "outer");
    EXPECT_EQ(currentRequestId(), "r1");
  }
  logMessage(6, "none");
  EXPECT_EQ(
      lines_,
      (std::vector<Line>{
          {6, "inner [request r2]"}, {6, "elsewhere"}, {6, "outer [request r1]"}, {6, "none"}}));
  EXPECT_EQ(currentRequestId(), "");
}

TEST_F(SysLoggerLines, RequestLinesReachTheirSink) {
  std::vector<std::string> kept;
  installRequestLineSink(
      [&kept](const std::string& request, int priority, const std::string& text) {
        kept.push_back(request + " " + std::to_string(priority) + " " + text);
      });
  logMessage(3, "of no request");
  {
    const RequestIdScope scope("r1");
    logMessage(11, "a\nb");
    logMessage(7, "dropped");
  }
  installRequestLineSink(nullptr);
  {
    const RequestIdScope scope("r2");
    logMessage(3, "nobody keeps it");
  }
  EXPECT_EQ(kept, (std::vector<std::string>{"r1 3 a\\x0Ab"}));
  EXPECT_EQ(lines_.size(), 3U);
}

TEST_F(SysLoggerLines, SharedLoggerPrefixIsPerThread) {
  SysLogger logger;
  SysLogger other;
  logger.setPrefix("paddock_sharing:here");
  std::thread([&logger] {
    logger.setPrefix("paddock_sharing:there");
    logger.log(4, "second");
  }).join();
  logger.log(4, "first");
  EXPECT_EQ(logger.prefix(), "paddock_sharing:here");
  EXPECT_EQ(other.prefix(), "");
  EXPECT_EQ(lines_, (std::vector<Line>{{4, "paddock_sharing:there second"},
                                       {4, "paddock_sharing:here first"}}));
}

TEST_F(SysLoggerLines, ALoggerCanWriteElsewhere) {
  std::vector<Line> elsewhere;
  SysLogger logger(
      [&](int priority, const std::string& line) { elsewhere.emplace_back(priority, line); });
  logger.setPrefix("module:here");
  logger.log(7, "text");
  EXPECT_EQ(elsewhere, (std::vector<Line>{{7, "module:here text"}}));
  EXPECT_TRUE(lines_.empty());
}

TEST_F(SysLoggerLines, FormatDirectivesInTextAreNotInterpreted) {
  logMessage(3, "%s%n");
  EXPECT_EQ(lines_, (std::vector<Line>{{3, "%s%n"}}));
}

TEST_F(SysLoggerLines, StandardErrorLinesStartWithThePriority) {
  testing::internal::CaptureStderr();
  standardErrorSink()(4, "text");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "<4>text\n");
}

TEST_F(SysLoggerLines, ThreadsLogWhileTheSinkIsReplaced) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([] {
      for (int round = 0; round < 100; ++round) logMessage(6, "x");
    });
  }
  for (int round = 0; round < 50; ++round) installLogSink([](int, const std::string&) {});
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace paddock
