// Doubles of the services of the host library, which record what they are asked: the logger, the
// commands to sibling plug-ins and the program runner; and wrappers of the last two, through which
// tests let calls fail and see them.
#pragma once

#include <cerrno>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "platform/logger.h"
#include "platform/plugin_commands.h"
#include "platform/program_runner.h"
#include "platform/testing/call_rules.h"

namespace paddock {

// A logger that keeps what was logged.
class RecordingLogger : public Logger {
 public:
  struct Line {
    int priority = 0;
    std::string text;
    friend bool operator==(const Line&, const Line&) = default;
  };

  void log(int priority, std::string_view text) override {
    const MutexLock lock(mutex_);
    lines_.push_back({priority, std::string(text)});
  }

  std::vector<Line> lines() const {
    const MutexLock lock(mutex_);
    return lines_;
  }
  void clear() {
    const MutexLock lock(mutex_);
    lines_.clear();
  }

 private:
  mutable Mutex mutex_;
  std::vector<Line> lines_ PADDOCK_GUARDED_BY(mutex_);
};

// Sibling plug-ins that record requests and return configured replies. Thread-safe for commands.
class RecordingPluginCommands : public PluginCommands {
 public:
  struct Sent {
    std::string bundle;
    Dictionary command;
    std::string module;
    std::optional<std::string> user;
    friend bool operator==(const Sent&, const Sent&) = default;
  };
  using Plugin = std::function<Dictionary(const Dictionary& command)>;

  Dictionary doCommand(const std::string& bundle, const Dictionary& command,
                       const std::string& module, const std::optional<std::string>& user) override {
    note({bundle, command, module, user});
    const auto plugin = plugins_.find(module);
    return plugin == plugins_.end() ? Dictionary() : plugin->second(command);
  }

  // How the plug-in `module` answers from now on; one without this is not there.
  void setPlugin(const std::string& module, Plugin plugin) { plugins_[module] = std::move(plugin); }

  // To be read when no thread sends any more, and so without the lock.
  const std::vector<Sent>& sent() const PADDOCK_NO_THREAD_SAFETY_ANALYSIS { return sent_; }
  void clear() PADDOCK_NO_THREAD_SAFETY_ANALYSIS { sent_.clear(); }

 private:
  void note(Sent sent) {
    const MutexLock lock(mutex_);
    sent_.push_back(std::move(sent));
  }

  Mutex mutex_;
  std::vector<Sent> sent_ PADDOCK_GUARDED_BY(mutex_);
  std::map<std::string, Plugin> plugins_;
};

// A program runner that runs nothing: it records calls and returns configured outcomes.
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

// Sibling plug-ins. A failure is an empty reply; the plug-in is not asked. Operation: doCommand
// (subject: the module, detail: the command's name).
class ForwardingPluginCommands final : public Forwarder<PluginCommands> {
 public:
  using Forwarder::Forwarder;
  Dictionary doCommand(const std::string& bundle, const Dictionary& command,
                       const std::string& module, const std::optional<std::string>& user) override {
    const std::string* name = command.string("command");
    const ServiceCall call{"doCommand", module, name != nullptr ? *name : ""};
    if (ask("pluginCommands.doCommand", call) != 0) return {};
    return wrapped().doCommand(bundle, command, module, user);
  }
};

// Programs. A failure is the errno of starting the program, and nothing runs; of `probe`, its
// errno; `exists` says false. Operations: run, start, startDetached (subject: the path, detail: the
// arguments with a blank between them), programExists (subject: the path), probe (subject: the
// process).
class ForwardingProgramRunner final : public Forwarder<ProgramRunner> {
 public:
  using Forwarder::Forwarder;
  ProgramOutcome run(const std::string& path, const std::vector<std::string>& arguments) override {
    ProgramOutcome failure;
    failure.status = ask("programRunner.run", {"run", path, joined(arguments)});
    return failure.status != 0 ? failure : wrapped().run(path, arguments);
  }
  int start(const std::string& path, const std::vector<std::string>& argumentVector) override {
    const int error = ask("programRunner.start", {"start", path, joined(argumentVector)});
    return error != 0 ? error : wrapped().start(path, argumentVector);
  }
  DetachedStart startDetached(const std::string& path,
                              const std::vector<std::string>& argumentVector) override {
    const int error =
        ask("programRunner.startDetached", {"startDetached", path, joined(argumentVector)});
    if (error == 0) return wrapped().startDetached(path, argumentVector);
    return {.error = error, .pid = 0, .detachError = 0};
  }
  bool exists(const std::string& path) override {
    return ask("programRunner.exists", {"programExists", path, ""}) == 0 && wrapped().exists(path);
  }
  int probe(std::int64_t process) override {
    const int error = ask("programRunner.probe", {"probe", std::to_string(process), ""});
    return error != 0 ? error : wrapped().probe(process);
  }

 private:
  static std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
  }
};

}  // namespace paddock
