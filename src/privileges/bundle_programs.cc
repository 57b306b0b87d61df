#include "privileges/bundle_programs.h"

#include <cerrno>
#include <new>
#include <utility>
#include <vector>

#include "base/text.h"
#include "platform/logger.h"
#include "platform/program_runner.h"
#include "platform/services.h"
#include "platform/status_files.h"
#include "privileges/module_logger.h"
#include "protocol/keys.h"

namespace paddock {

Status get_effective_permissions(const std::string& path, std::uint32_t uid, std::int32_t& result) {
  SysLogger& logger = get_logger("get_effective_permissions");
  ProgramRunner& programs = *services().programRunner;
  const std::string program = kEffectivePrivsPath;
  if (!programs.exists(program)) {
    logger.log(kLogError,
               "Cannot get effective permissions because " + program + " executable is missing");
    return -1;
  }
  const ProgramOutcome outcome = programs.run(program, {"-p", path, "-u", std::to_string(uid)});
  if (outcome.status != 0) return outcome.status;
  if (!outcome.errorOutput.empty()) return -1;
  result = leadingInteger(outcome.output);
  return kSuccess;
}

namespace {

constexpr int kPriorityOfFailedStart = 11;
constexpr int kPriorityOfMissingProgram = 3;
constexpr const char* kStatusFileTemplate = "/tmp/CopyPrivsTemp.XXXXXX";
constexpr const char* kStatusKey = "status";
constexpr const char* kCompleted = "completed";

void log(int priority, const std::string& text) {
  get_logger("launch_propagate_command").log(priority, text);
}

void remember(Context& context, std::int32_t process, const std::string& statusFile) {
  context.set(protocol::kCopyPrivsPid, process);
  context.set(protocol::kCopyPrivsActive, true);
  context.set(protocol::kCopyPrivsStatusFile, statusFile);
  context.set(Context::kDirtyKey, true);
}

void retire(Context& context) {
  context.remove(protocol::kCopyPrivsActive);
  context.remove(protocol::kCopyPrivsPid);
  context.remove(protocol::kCopyPrivsStatusFile);
  context.set(Context::kDirtyKey, true);
}

// Deliberate: a process that is not there counts as running, since the one that is kept has always
// ended already.
bool mayBeRunning(const Value* process) {
  const int error = services().programRunner->probe(readInteger(process).value_or(0));
  return error == 0 || error == EPERM || error == ESRCH;
}

bool isCompleted(const Dictionary& status) {
  const std::string* text = status.string(kStatusKey);
  return text != nullptr && *text == kCompleted;
}

// The new status file of a run, taken back unless it is kept.
class NewStatusFile {
 public:
  NewStatusFile() : error_(services().statusFiles->create(kStatusFileTemplate, path_)) {}
  NewStatusFile(const NewStatusFile&) = delete;
  NewStatusFile& operator=(const NewStatusFile&) = delete;
  ~NewStatusFile() {
    if (error_ != 0 || isKept_) return;
    try {
      (void)services().statusFiles->discard(path_);
    } catch (const std::bad_alloc&) {
      // Memory is what there was too little of.
    }
  }

  int error() const { return error_; }
  const std::string& path() const { return path_; }
  void keep() { isKept_ = true; }

 private:
  std::string path_;
  const int error_;
  bool isKept_ = false;
};

void logFailedFork(const std::string& program, int error) {
  log(kPriorityOfFailedStart,
      "paddock_sharing: cannot fork(" + program + "): " + sharing_error_string(error) + "\n");
}

void logFailedDetaching(const std::string& program, const DetachedStart& start) {
  log(kPriorityOfFailedStart, "paddock_sharing: child #" + std::to_string(start.pid) +
                                  " cannot daemonize(" + program +
                                  "): " + sharing_error_string(start.detachError) + "\n");
}

std::int32_t launch(Context& context, const std::string& path, PropagationMask mask) {
  ProgramRunner& programs = *services().programRunner;
  const std::string program = kCopyPrivsPath;
  if (!programs.exists(program)) {
    log(kPriorityOfMissingProgram,
        "Cannot propagate permissions because " + program + " executable is missing");
    return -1;
  }
  NewStatusFile statusFile;
  if (statusFile.error() != 0) return -1;
  const DetachedStart start = programs.startDetached(
      program, {"CopyPrivs", "-p", path, "-f", std::to_string(mask), "-s", statusFile.path()});
  if (start.prepareError != 0) {
    log(kPriorityOfMissingProgram,
        "Cannot propagate permissions because " + program +
            " cannot be started: " + sharing_error_string(start.prepareError));
    return -1;
  }
  // Deliberate: the empty file stays from here on, also when forking or detaching failed.
  statusFile.keep();
  if (start.error != 0) {
    logFailedFork(program, start.error);
    return -1;
  }
  if (start.detachError != 0) logFailedDetaching(program, start);
  remember(context, start.pid, statusFile.path());
  return start.pid;
}

}  // namespace

Status start_propagate_privs(Context& context, const std::string& path, PropagationMask mask) {
  return launch_propagate_command(context, path, mask) == -1 ? CANNOT_PROPAGATE_PRIVS_ERR
                                                             : kSuccess;
}

std::int32_t launch_propagate_command(Context& context, const std::string& path,
                                      PropagationMask mask) {
  try {
    return launch(context, path, mask);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

Status get_copyprivs_status(Context& context, const Value* process,
                            std::optional<Dictionary>& status, const std::string& statusFile) {
  status.reset();
  const bool running = mayBeRunning(process);
  StatusFiles& files = *services().statusFiles;
  if (!files.exists(statusFile)) {
    retire(context);
    return COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR;
  }
  status = files.read(statusFile);
  const bool completed = status && isCompleted(*status);
  if (completed) (void)files.remove(statusFile);
  if (completed || !running) retire(context);
  return kSuccess;
}

}  // namespace paddock
