// A program that a test kills while it runs.
#pragma once

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace paddock {

// How long `run` takes.
inline std::chrono::duration<double, std::micro> durationOf(const std::function<void()>& run) {
  const auto began = std::chrono::steady_clock::now();
  run();
  return std::chrono::steady_clock::now() - began;
}

// Starts the program with `words` as its argument vector and kills it after a while. Whether that
// came before its end.
inline bool killAfter(const std::string& program, std::vector<std::string> words,
                      std::chrono::microseconds time) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = -1;
  const int error =
      ::posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments.data(), environ);
  EXPECT_EQ(error, 0) << program;
  if (error != 0) return false;
  std::this_thread::sleep_for(time);
  ::kill(child, SIGKILL);
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << status;
  return WIFSIGNALED(status);
}

// Kills runs of the program at a hundred random moments of the `whole` that one takes, with
// `prepare` called before and `check` after each; some of them must have been running.
inline void killAtRandomMoments(const std::string& program, const std::vector<std::string>& words,
                                std::chrono::duration<double, std::micro> whole,
                                const std::function<void()>& prepare,
                                const std::function<void()>& check) {
  constexpr int kRounds = 100;
  std::mt19937 random(5);
  std::uniform_int_distribution<int> time(0, static_cast<int>(whole.count()));
  int killed = 0;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE(round);
    prepare();
    if (killAfter(program, words, std::chrono::microseconds(time(random)))) ++killed;
    check();
  }
  EXPECT_GT(killed, 0);
}

}  // namespace paddock
