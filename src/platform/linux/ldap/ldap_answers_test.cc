#include "platform/linux/ldap/ldap_answers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

#include "platform/testing/fake_machine_information.h"

namespace paddock {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

class LdapAnswerCaching : public ::testing::Test {
 protected:
  static LdapAnswers::Answer named(const std::string& name) { return {{name, "", {}}}; }

  // The name that is answered, by something that numbers its answers.
  std::string asked(const std::string& key) {
    return answers_.get(key, [this] { return named(std::to_string(++questions_)); }).at(0).dn;
  }

  FakeClock clock_;
  LdapAnswers answers_{clock_, {seconds(2), hours(1)}};
  std::atomic<int> questions_{0};
};

TEST_F(LdapAnswerCaching, AnAnswerHoldsForItsTimePerKey) {
  EXPECT_EQ(asked("a"), "1");
  EXPECT_EQ(asked("b"), "2");
  clock_.advance(milliseconds(1'999));
  EXPECT_EQ(asked("a"), "1");
  EXPECT_EQ(asked("b"), "2");
  clock_.advance(milliseconds(1));
  EXPECT_EQ(asked("a"), "3");
}

TEST_F(LdapAnswerCaching, ItsTimeBeginsWhenItIsAskedFor) {
  answers_.get("a", [this] {
    clock_.advance(milliseconds(1'500));
    return named("slow");
  });
  clock_.advance(milliseconds(499));
  EXPECT_EQ(asked("a"), "slow");
  clock_.advance(milliseconds(1));
  EXPECT_EQ(asked("a"), "1");
}

TEST_F(LdapAnswerCaching, ThatThereIsNobodyIsAnAnswerToo) {
  EXPECT_TRUE(answers_.get("a", [] { return LdapAnswers::Answer(); }).empty());
  EXPECT_TRUE(answers_.get("a", [] { return named("new"); }).empty());
}

TEST_F(LdapAnswerCaching, WhatWasFoundBesidesIsKept) {
  answers_.keep("a", named("besides"), clock_.monotonicNow() - seconds(1));
  EXPECT_EQ(asked("a"), "besides");
  clock_.advance(seconds(1));
  EXPECT_EQ(asked("a"), "1");
}

TEST_F(LdapAnswerCaching, AFailureIsNotKept) {
  const auto fail = []() -> LdapAnswers::Answer { throw DirectoryError(EBUSY, "busy"); };
  for (int i = 0; i < 2; ++i) EXPECT_THROW(answers_.get("a", fail), DirectoryError);
  const auto breakDown = []() -> LdapAnswers::Answer { throw std::bad_alloc(); };
  EXPECT_THROW(answers_.get("a", breakDown), std::bad_alloc);
  EXPECT_EQ(asked("a"), "1");
}

TEST_F(LdapAnswerCaching, OversizedAnswerIsNotKept) {
  const auto large = [](std::size_t size) {
    return LdapAnswers::Answer{{"", "", {{"n", {std::string(size - 1, 'x')}}}}};
  };
  answers_.get("fits", [&] { return large(LdapAnswers::kLargest); });
  answers_.get("large", [&] { return large(LdapAnswers::kLargest + 1); });
  EXPECT_EQ(answers_.get("fits", [] { return named("again"); }).at(0).dn, "");
  EXPECT_EQ(asked("large"), "1");
}

TEST_F(LdapAnswerCaching, OneAnswerTooManyDropsThemAll) {
  for (std::size_t i = 0; i < LdapAnswers::kCapacity; ++i) asked(std::to_string(i));
  EXPECT_EQ(asked("0"), "1");
  const std::string next = std::to_string(LdapAnswers::kCapacity + 1);
  EXPECT_EQ(asked("new"), next);
  EXPECT_EQ(asked("new"), next);
  EXPECT_NE(asked("0"), "1");
}

TEST_F(LdapAnswerCaching, UnknownKeysOfSeveralAreAskedTogether) {
  asked("b");
  std::vector<std::vector<std::size_t>> rounds;
  const auto askEach = [&](const std::vector<std::size_t>& places) {
    rounds.push_back(places);
    std::vector<LdapAnswers::Answer> found;
    for (const std::size_t at : places) found.push_back(named("place " + std::to_string(at)));
    return found;
  };
  const auto all = answers_.getEach({"a", "b", "c", "a"}, askEach);
  ASSERT_EQ(all.size(), 4U);
  EXPECT_EQ(all[0].at(0).dn, "place 0");
  EXPECT_EQ(all[1].at(0).dn, "1");
  EXPECT_EQ(all[2].at(0).dn, "place 2");
  EXPECT_EQ(all[3].at(0).dn, "place 0");
  answers_.getEach({"c", "a"}, askEach);
  EXPECT_EQ(rounds, (std::vector<std::vector<std::size_t>>{{0, 2}}));
  EXPECT_EQ(asked("c"), "place 2");
}

TEST_F(LdapAnswerCaching, AFailureOfSeveralIsNotKept) {
  const auto fail = [](const auto&) -> std::vector<LdapAnswers::Answer> {
    throw DirectoryError(EBUSY, "busy");
  };
  EXPECT_THROW(answers_.getEach({"a", "b"}, fail), DirectoryError);
  EXPECT_EQ(asked("a"), "1");
  EXPECT_EQ(asked("b"), "2");
}

TEST_F(LdapAnswerCaching, WithoutATimeEveryQuestionIsAsked) {
  LdapAnswers none(clock_, {milliseconds(0), hours(1)});
  int questions = 0;
  for (int i = 0; i < 3; ++i)
    none.get("a", [&] {
      ++questions;
      return named("x");
    });
  none.keep("b", named("besides"), clock_.monotonicNow());
  EXPECT_EQ(none.get("b", [] { return named("asked"); }).at(0).dn, "asked");
  EXPECT_EQ(questions, 3);
}

// A question that is asked by one thread, and that others wait for.
class LdapQuestion : public LdapAnswerCaching {
 protected:
  static constexpr std::size_t kWaiting = 15;

  // Asks; `answer` is called when all of the others wait.
  template <typename Answer>
  void askFirst(Answer answer) {
    std::promise<void> begun;
    threads_.emplace_back([this, answer, &begun] {
      try {
        results_[0] = answers_
                          .get("a",
                               [this, answer, &begun] {
                                 begun.set_value();
                                 while (answers_.waiting() < kWaiting) std::this_thread::yield();
                                 return answer();
                               })
                          .at(0)
                          .dn;
      } catch (const std::exception& error) {
        results_[0] = error.what();
      }
    });
    begun.get_future().wait();
  }
  void waitForIt() {
    for (std::size_t i = 1; i <= kWaiting; ++i)
      threads_.emplace_back([this, i] {
        try {
          results_[i] = asked("a");
        } catch (const DirectoryError& error) {
          results_[i] = error.what() + std::to_string(*error.status());
        }
      });
  }
  void join() {
    for (std::thread& thread : threads_) thread.join();
  }

  std::string results_[kWaiting + 1];

 private:
  std::vector<std::thread> threads_;
};

TEST_F(LdapQuestion, IsAskedOnceHoweverManyWaitForIt) {
  askFirst([] { return named("found"); });
  waitForIt();
  join();
  for (const std::string& result : results_) EXPECT_EQ(result, "found");
  EXPECT_EQ(questions_, 0);
  EXPECT_EQ(answers_.waiting(), 0U);
}

TEST_F(LdapQuestion, FailsForAllWaitersAndIsAskedAgain) {
  askFirst([]() -> LdapAnswers::Answer { throw DirectoryError(EBUSY, "busy "); });
  waitForIt();
  join();
  EXPECT_EQ(results_[0], "busy ");
  for (std::size_t i = 1; i <= kWaiting; ++i)
    EXPECT_EQ(results_[i], "busy " + std::to_string(EBUSY));
  EXPECT_EQ(asked("a"), "1");
}

TEST_F(LdapQuestion, IsAskedByWaitersWhenFirstCallerThrows) {
  askFirst([]() -> LdapAnswers::Answer { throw std::runtime_error("broken"); });
  waitForIt();
  join();
  EXPECT_EQ(results_[0], "broken");
  EXPECT_EQ(questions_, static_cast<int>(kWaiting));
}

TEST_F(LdapAnswerCaching, CallerWaitingTooLongAsksItself) {
  LdapAnswers impatient(clock_, {seconds(2), milliseconds(1)});
  std::promise<void> begun;
  std::promise<void> mayEnd;
  std::thread slow([&] {
    impatient.get("a", [&] {
      begun.set_value();
      mayEnd.get_future().wait();
      return named("slow");
    });
  });
  begun.get_future().wait();
  EXPECT_EQ(impatient.get("a", [] { return named("own"); }).at(0).dn, "own");
  mayEnd.set_value();
  slow.join();
  EXPECT_EQ(impatient.get("a", [] { return named("own"); }).at(0).dn, "slow");
}

}  // namespace
}  // namespace paddock
