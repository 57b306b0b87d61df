// A program that runs beside a test, and is stopped or killed by it.
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
#include <utility>
#include <vector>

namespace paddock {

// Killed at the end of this object when it still runs.
class RunningProgram {
 public:
  // `words` is the argument vector.
  RunningProgram(const std::string& program, std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const int error =
        ::posix_spawn(&process_, program.c_str(), nullptr, nullptr, arguments.data(), environ);
    EXPECT_EQ(error, 0) << program;
    if (error != 0) process_ = -1;
  }
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;
  ~RunningProgram() {
    if (process_ > 0) end(SIGKILL);
  }

  pid_t process() const { return process_; }
  bool isRunning() const {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
  }
  // Returns when no thread of it runs any more; false when it has ended.
  bool stop() const {
    ::kill(process_, SIGSTOP);
    siginfo_t info{};
    ::waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WSTOPPED | WNOWAIT);
    return info.si_code == CLD_STOPPED;
  }
  void goOn() const { ::kill(process_, SIGCONT); }
  // Sends the signal, none for 0, and waits. The exit status, -1 when a signal ended it.
  int end(int signal = 0) {
    if (signal != 0) ::kill(process_, signal);
    int status = 0;
    ::waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t process_ = -1;
};

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
  RunningProgram running(program, std::move(words));
  if (running.process() < 0) return false;
  std::this_thread::sleep_for(time);
  const int status = running.end(SIGKILL);
  EXPECT_TRUE(status == -1 || status == 0) << status;
  return status == -1;
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
