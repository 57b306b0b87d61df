#include "copyprivs/copyprivs.h"

#include <unistd.h>

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <stdexcept>

#include "configuration/configuration.h"
#include "copyprivs/copyprivs_options.h"
#include "copyprivs/copyprivs_tree_walk.h"
#include "copyprivs/run_report.h"
#include "copyprivs/status_file.h"
#include "platform/linux/accounts/linux_membership.h"
#include "platform/linux/configured_options.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "wire/property_list.h"

namespace paddock::copyprivs {

namespace {

using Clock = std::chrono::steady_clock;

// Failures are reported in the status file.
class SilentLogger final : public Logger {
 public:
  void log(int, std::string_view) override {}
};

// The services that the privileges of files need.
class World {
 public:
  World(const Dictionary& configuration, const std::string& root)
      : directory_(configuredDirectory(configuration, root)),
        privileges_(configuredPrivileges(configuration, root), directory_, membership_,
                    configuredSidResolver(configuration, root)) {
    Services services;
    services.logger = &logger_;
    services.acl = &privileges_.acl();
    guard_.emplace(services);
  }
  FilePrivileges& privileges() { return privileges_; }

 private:
  LinuxDirectoryService directory_;
  LinuxMembership membership_{directory_};
  FilePrivileges privileges_;
  SilentLogger logger_;
  std::optional<ServicesGuard> guard_;
};

Dictionary readConfigurationTree(const std::string& root) {
  try {
    return readInstalledConfiguration(root);
  } catch (const std::runtime_error& error) {
    throw CannotStart(error.what());
  }
}

bool leavesLinks(const Dictionary& configuration) {
  const Dictionary* table = configuration.dictionary("propagation");
  return table != nullptr && table->boolean("leave_links").value_or(false);
}

// One run and its reports.
class Run {
 public:
  Run(const Options& options, const std::atomic<bool>& stop) : options_(options), stop_(stop) {}

  // Throws CannotStart, or what the walk throws.
  void perform(const std::string& root, StatusFile& file) {
    const StartingFolder folder = findStartingFolder(options_.folder);
    const Dictionary configuration = readConfigurationTree(root);
    World world(configuration, root);
    Propagation propagation = propagationFrom(folder, options_.mask, world.privileges().fileAcls());
    propagation.attribute = configuredPrivileges(configuration, root).attribute;
    propagation.dryRun = options_.dryRun;
    propagation.leavesLinks = leavesLinks_ = options_.leavesLinks || leavesLinks(configuration);
    StatusWriter writer(file, [this] { return status(false); });
    walkTree(folder, propagation, world.privileges(), {}, stop_, report_);
  }

  void setFailure(const std::string& text) { failure_ = text; }
  const RunReport& report() const { return report_; }

  Dictionary status(bool isEnded) const {
    Dictionary status{{"status", isEnded ? "completed" : "running"},
                      {"path", shortPath(options_.folder)},
                      {"mask", options_.mask},
                      {"pid", ::getpid()}};
    report_.fill(status, isEnded, options_.dryRun);
    status.set("elapsedSeconds",
               std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - began_).count());
    if (options_.dryRun) status.set("dryRun", true);
    if (leavesLinks_) status.set("itemsLeftOut", report_.leftOut());
    if (isEnded && stop_) status.set("stopped", true);
    if (!failure_.empty()) status.set("error", failure_);
    return status;
  }

 private:
  const Options& options_;
  const std::atomic<bool>& stop_;
  const Clock::time_point began_ = Clock::now();
  RunReport report_;
  bool leavesLinks_ = false;
  std::string failure_;
};

int finish(const Run& run, StatusFile& file, int result, const frame::ProgramRun& program) {
  file.replace(wire::writePropertyList(run.status(true)), true);
  if (!file.failure().empty()) program.say(file.failure());
  return result;
}

// The exit status of a run that did start.
int resultOf(const Run& run) {
  return run.report().errorCount() == 0 ? frame::done : frame::failed;
}

int performRun(const Options& options, const std::string& root, const std::atomic<bool>& stop,
               const frame::ProgramRun& program) {
  StatusFile file(options.statusFile);
  Run run(options, stop);
  int result = frame::failed;
  try {
    run.perform(root, file);
    result = resultOf(run);
  } catch (const CannotStart& failure) {
    run.setFailure(failure.what());
    program.say(failure.what());
    result = frame::unusable;
  } catch (const std::exception& failure) {
    run.setFailure(failure.what());
    program.say(failure.what());
  }
  return finish(run, file, result, program);
}

}  // namespace

int runCopyPrivs(const std::vector<std::string>& words, const std::string& root,
                 const std::atomic<bool>& stop, std::ostream& out, std::ostream& error) {
  const frame::ProgramRun program("copyprivs", kUsage, out, error);
  Options options;
  const std::string fault = readOptions(words, options);
  if (fault.empty() && options.isAny()) return program.describe(options);
  if (fault.empty()) return performRun(options, root, stop, program);
  const int result = program.refuse(fault);
  if (options.statusFile.empty()) return result;
  StatusFile file(options.statusFile);
  Run run(options, stop);
  run.setFailure(fault);
  return finish(run, file, result, program);
}

}  // namespace paddock::copyprivs
