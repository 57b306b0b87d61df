// A program run to its end by a test.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace paddock {

struct EndedProgram {
  int status = -1;  // the exit status; -1 when a signal ended it
  std::string output;
  std::string error;
};

// Runs the program with `words` as its argument vector and `input` on its standard input.
inline EndedProgram runProgramAs(const std::string& program, std::vector<std::string> words,
                                 const std::string& input = {}) {
  const TestFolder folder;
  writeWholeFile(folder.path("in"), input);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const auto redirect = [&](int descriptor, const char* name, int flags) {
    constexpr mode_t kMode = 0600;
    posix_spawn_file_actions_addopen(&actions, descriptor, folder.path(name).c_str(), flags, kMode);
  };
  redirect(STDIN_FILENO, "in", O_RDONLY);
  redirect(STDOUT_FILENO, "out", O_WRONLY | O_CREAT | O_TRUNC);
  redirect(STDERR_FILENO, "err", O_WRONLY | O_CREAT | O_TRUNC);
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = -1;
  const int error =
      ::posix_spawn(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  EXPECT_EQ(error, 0) << program;
  int status = -1;
  if (error == 0) {
    EXPECT_EQ(::waitpid(child, &status, 0), child);
  }
  return {error == 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1,
          readWholeFile(folder.path("out")), readWholeFile(folder.path("err"))};
}

// The same with words[0] as the program.
inline EndedProgram runProgram(const std::vector<std::string>& words,
                               const std::string& input = {}) {
  return runProgramAs(words.front(), words, input);
}

}  // namespace paddock
