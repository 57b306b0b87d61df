#include "daemon/audit/request_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace paddock {
namespace {

std::vector<std::string> textsOf(const RequestLog& log, const std::string& id) {
  std::vector<std::string> texts;
  const auto request = log.find(id);
  if (request) {
    for (const LoggedLine& line : request->lines) texts.push_back(line.text);
  }
  return texts;
}

TEST(RequestLog, KnowsARequestFromItsBeginning) {
  RequestLog log;
  EXPECT_FALSE(log.find("a"));
  log.begin("a", 7);
  ASSERT_TRUE(log.find("a"));
  EXPECT_EQ(log.find("a")->user, 7U);
  EXPECT_TRUE(log.find("a")->lines.empty());
}

TEST(RequestLog, KeepsLinesInOrderAfterEnd) {
  RequestLog log;
  log.begin("a", 0);
  log.add("a", 3, "first");
  log.add("other", 3, "nobody's");
  log.end("a", false);
  log.add("a", 6, "late");
  EXPECT_EQ(textsOf(log, "a"), (std::vector<std::string>{"first", "late"}));
  EXPECT_EQ(log.find("a")->lines.front().priority, 3);
  EXPECT_FALSE(log.find("other"));
}

TEST(RequestLog, LinesOfNestedRequestsAlsoBelongToOuter) {
  RequestLog log;
  log.begin("outer", 0);
  log.begin("inner", 0, "outer");
  log.begin("innermost", 0, "inner");
  log.add("innermost", 4, "deep");
  log.add("outer", 4, "own");
  EXPECT_EQ(textsOf(log, "outer"), (std::vector<std::string>{"deep", "own"}));
  EXPECT_EQ(textsOf(log, "inner"), (std::vector<std::string>{"deep"}));
  EXPECT_EQ(textsOf(log, "innermost"), (std::vector<std::string>{"deep"}));
}

TEST(RequestLog, SelfReferencingOuterRequestDoesNotLoop) {
  RequestLog log;
  log.begin("a", 0, "a");
  log.add("a", 4, "x");
  EXPECT_LE(textsOf(log, "a").size(), 16U);
}

TEST(RequestLog, KeepsTheLastThousand) {
  RequestLog log;
  for (std::size_t number = 0; number <= RequestLog::kKeptRequests; ++number) {
    const std::string id = std::to_string(number);
    log.begin(id, 0);
    log.add(id, 6, id);
    log.end(id, false);
  }
  EXPECT_FALSE(log.find("0"));
  EXPECT_EQ(textsOf(log, "1"), (std::vector<std::string>{"1"}));
  EXPECT_TRUE(log.find(std::to_string(RequestLog::kKeptRequests)));
}

TEST(RequestLog, StrangersPushOutNobodyElse) {
  RequestLog log;
  log.begin("mine", 0);
  log.end("mine", false);
  for (std::size_t number = 0; number < 3 * RequestLog::kKeptRequests; ++number) {
    log.begin("s" + std::to_string(number), 99);
    log.end("s" + std::to_string(number), true);
  }
  EXPECT_TRUE(log.find("mine"));
  EXPECT_FALSE(log.find("s0"));
}

TEST(RequestLog, RunningRequestIsKeptDespiteManyEndedOnes) {
  RequestLog log;
  log.begin("running", 0);
  for (std::size_t number = 0; number < 2 * RequestLog::kKeptRequests; ++number) {
    log.begin(std::to_string(number), 0);
    log.end(std::to_string(number), false);
  }
  log.add("running", 3, "still here");
  EXPECT_EQ(textsOf(log, "running"), (std::vector<std::string>{"still here"}));
}

TEST(RequestLog, SaysHowManyLinesItLeftOut) {
  RequestLog log;
  log.begin("a", 0);
  const std::string kilobyte(1024, 'x');
  for (int count = 0; count < 100; ++count) log.add("a", 3, kilobyte);
  const auto lines = log.find("a")->lines;
  std::size_t bytes = 0;
  for (const LoggedLine& line : lines) bytes += line.text.size();
  EXPECT_LE(bytes, RequestLog::kRequestBytes + 200);
  EXPECT_EQ(lines.back().text, "lines of this request that are in the daemon's log alone: " +
                                   std::to_string(100 - (lines.size() - 1)));
  EXPECT_EQ(lines.back().priority, 4);
}

TEST(RequestLog, InformationLeavesRoomForErrors) {
  RequestLog log;
  log.begin("a", 0);
  for (int count = 0; count < 1000; ++count) log.add("a", 6, std::string(1024, 'x'));
  log.add("a", 3, "what went wrong");
  const auto texts = textsOf(log, "a");
  EXPECT_NE(std::find(texts.begin(), texts.end(), "what went wrong"), texts.end());
}

TEST(RequestLog, ALongLineIsCutAtACharacter) {
  RequestLog log;
  log.begin("a", 0);
  std::string text(RequestLog::kLineBytes - 1, 'x');
  text += "\xC3\xA4 and more";
  log.add("a", 3, text);
  EXPECT_EQ(textsOf(log, "a").front(), std::string(RequestLog::kLineBytes - 1, 'x') + "...");
}

TEST(RequestLog, ManyThreadsUseItAtOnce) {
  RequestLog log;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&log, thread] {
      for (int round = 0; round < 500; ++round) {
        const std::string id = std::to_string(thread) + "-" + std::to_string(round);
        log.begin(id, 0);
        log.add(id, 3, "x");
        EXPECT_EQ(textsOf(log, id).size(), 1U);
        log.end(id, false);
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST(RequestLog, LevelsAreNamed) {
  EXPECT_EQ(levelOfPriority(0), "error");
  EXPECT_EQ(levelOfPriority(3), "error");
  EXPECT_EQ(levelOfPriority(4), "warning");
  EXPECT_EQ(levelOfPriority(5), "info");
  EXPECT_EQ(levelOfPriority(6), "info");
  EXPECT_EQ(levelOfPriority(7), "debug");
}

}  // namespace
}  // namespace paddock
