// The signals that are blocked and ignored in a started program.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <string>

namespace paddock {

// Expects that a program that `run` starts has no signal blocked nor ignored, while this one has.
// `run` gives the lines SigBlk and SigIgn of the program's /proc/self/status.
template <typename Run>
void expectNoSignalsInherited(Run run) {
  const auto previous = std::signal(SIGPIPE, SIG_IGN);
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const std::string lines = run();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  std::signal(SIGPIPE, previous);
  unsigned long long blockedMask = 1;
  unsigned long long ignoredMask = 1;
  ASSERT_EQ(std::sscanf(lines.c_str(), "SigBlk: %llx SigIgn: %llx", &blockedMask, &ignoredMask), 2);
  // 32 and 33 are the C library's own, which its posix_spawn leaves ignored.
  constexpr unsigned long long kOwnOfTheLibrary = 3ULL << 31U;
  EXPECT_EQ(blockedMask, 0U);
  EXPECT_EQ(ignoredMask & ~kOwnOfTheLibrary, 0U);
}

}  // namespace paddock
