// A program runner that runs nothing: it keeps what it was asked and answers what it was told.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/program_runner.h"

namespace paddock {

class RecordingProgramRunner : public ProgramRunner {
 public:
  struct Run {
    std::string path;
    std::vector<std::string> arguments;
    friend bool operator==(const Run&, const Run&) = default;
  };
  using Program = std::function<ProgramOutcome(const std::vector<std::string>& arguments)>;

  ProgramOutcome run(const std::string& path, const std::vector<std::string>& arguments) override {
    runs_.push_back({path, arguments});
    const auto program = programs_.find(path);
    return program == programs_.end() ? otherwise_ : program->second(arguments);
  }

  // What is started without waiting is kept with its whole argument vector.
  int start(const std::string& path, const std::vector<std::string>& argumentVector) override {
    started_.push_back({path, argumentVector});
    return startError_;
  }
  const std::vector<Run>& started() const { return started_; }
  // What `start` answers from now on.
  void setStartError(int error) { startError_ = error; }

  // What the program at `path` does from now on.
  void setProgram(const std::string& path, Program program) {
    programs_[path] = std::move(program);
  }
  void setOutcome(const std::string& path, const ProgramOutcome& outcome) {
    setProgram(path, [outcome](const std::vector<std::string>&) { return outcome; });
  }
  // What every other program answers; at first status 0 and no output.
  void setOutcomeOfOthers(ProgramOutcome outcome) { otherwise_ = std::move(outcome); }

  const std::vector<Run>& runs() const { return runs_; }
  void clear() {
    runs_.clear();
    started_.clear();
  }

 private:
  std::vector<Run> runs_;
  std::vector<Run> started_;
  int startError_ = 0;
  std::map<std::string, Program> programs_;
  ProgramOutcome otherwise_;
};

}  // namespace paddock
