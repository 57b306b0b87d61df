// A stand-in for the program that pushes privileges down, installed in a tree for a test, and runs
// of it. The program that includes this defines SCRIPTED_COPYPRIVS.
#pragma once

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/temporary_folder.h"

namespace paddock::testing {

class ScriptedPropagation {
 public:
  // Installs it below `root`.
  explicit ScriptedPropagation(const std::string& root)
      : program_(root + "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs") {
    std::filesystem::create_directories(std::filesystem::path(program_).parent_path());
    std::filesystem::create_directories(root + "/tmp");
    std::filesystem::copy_file(SCRIPTED_COPYPRIVS, program_);
  }

  const std::string& program() const { return program_; }

  // What it writes at each point ("begin", "end", "stopped", "complaint").
  void says(const std::string& when, const std::string& text) const {
    writeWholeFile(program_ + "." + when, text);
  }
  // From now on runs continue until they are signalled to end, or `finish`.
  void waits() const { writeWholeFile(program_ + ".wait", ""); }
  void finish() const { std::filesystem::remove(program_ + ".wait"); }

  std::string arguments() const { return readWholeFile(program_ + ".arguments"); }

  // A status file's text: the elements of its dictionary as they stand in XML.
  static std::string status(const std::string& elements) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + elements +
           "</dict></plist>\n";
  }
  static std::string number(const std::string& key, long long value) {
    return "<key>" + key + "</key><integer>" + std::to_string(value) + "</integer>";
  }
  static std::string text(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key><string>" + value + "</string>";
  }

 private:
  std::string program_;
};

// A process that a test has started, ended and reaped with the object.
class StartedProcess {
 public:
  StartedProcess(const std::string& program, std::vector<std::string> words) {
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    EXPECT_EQ(::posix_spawn(&process_, program.c_str(), nullptr, nullptr, pointers.data(), environ),
              0)
        << program;
  }
  StartedProcess(const StartedProcess&) = delete;
  StartedProcess& operator=(const StartedProcess&) = delete;
  ~StartedProcess() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }

  pid_t process() const { return process_; }
  // Waits for its end; wait(2)'s status.
  int wait() {
    int status = -1;
    EXPECT_EQ(::waitpid(process_, &status, 0), process_);
    process_ = -1;
    return status;
  }

 private:
  pid_t process_ = -1;
};

// Waits until the condition holds; a failure when that takes too long.
template <typename Condition>
void waitUntil(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "waited for too long";
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

}  // namespace paddock::testing
