// A program on a pseudo-terminal of its own, for tests of its terminal output and input.
#pragma once

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

namespace paddock::testing {

// What the terminal shows so far is `shown`.
class OnTerminal {
 public:
  explicit OnTerminal(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    child_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (child_ == 0) {
      ::execv(arguments.front(), arguments.data());
      ::_exit(127);
    }
  }
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;
  ~OnTerminal() {
    ::close(terminal_);
    if (child_ > 0) (void)status();
  }

  const std::string& shown() const { return shown_; }

  // Reads until the terminal shows `text`, or the program has ended.
  bool waitFor(const std::string& text) {
    while (shown_.find(text) == std::string::npos) {
      if (!readSome()) return false;
    }
    return true;
  }
  void type(const std::string& text) const {
    EXPECT_EQ(::write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  // The exit status, after the end.
  int status() {
    while (readSome()) {
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child_, &status, 0), child_);
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  bool readSome() {
    char buffer[4096];
    const ssize_t count = ::read(terminal_, buffer, sizeof buffer);
    if (count <= 0) return false;
    shown_.append(buffer, static_cast<std::size_t>(count));
    return true;
  }

  int terminal_ = -1;
  pid_t child_ = -1;
  std::string shown_;
};

}  // namespace paddock::testing
