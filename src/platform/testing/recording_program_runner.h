// A program runner that runs nothing: it keeps what it was asked and answers what it was told.
#pragma once

#include <cerrno>
#include <functional>
#include <map>
#include <set>
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

  // What is started detached is kept with its whole argument vector; a program that is missing is
  // one that `setMissing` names.
  DetachedStart startDetached(const std::string& path,
                              const std::vector<std::string>& argumentVector) override {
    detached_.push_back({path, argumentVector});
    return detachedStart_;
  }
  const std::vector<Run>& detached() const { return detached_; }
  void setDetachedStart(const DetachedStart& start) { detachedStart_ = start; }
  bool exists(const std::string& path) override { return !missing_.contains(path); }
  void setMissing(const std::string& path) { missing_.insert(path); }
  int probe(std::int64_t process) override {
    probed_.push_back(process);
    return probeError_;
  }
  const std::vector<std::int64_t>& probed() const { return probed_; }
  void setProbeError(int error) { probeError_ = error; }

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
    detached_.clear();
  }

 private:
  std::vector<Run> runs_;
  std::vector<Run> started_;
  int startError_ = 0;
  std::vector<Run> detached_;
  DetachedStart detachedStart_{.error = 0, .pid = 4711, .detachError = 0};
  std::set<std::string> missing_;
  std::vector<std::int64_t> probed_;
  int probeError_ = ESRCH;
  std::map<std::string, Program> programs_;
  ProgramOutcome otherwise_;
};

}  // namespace paddock
