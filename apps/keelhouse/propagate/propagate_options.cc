#include <CLI/CLI.hpp>
#include <memory>

#include "keelhouse/core/command_options.h"
#include "keelhouse/propagate/propagate_commands.h"
#include "keelhouse/propagate/run_text.h"

namespace paddock::keelhouse {

namespace {

struct PropagateOptions {
  std::string path;
  std::uint32_t mask = 0;
  bool follow = false;
  bool stop = false;
  bool dryRun = false;
};

Failure nothingToPush() {
  std::string text = "propagate: no option says what to push down: any of";
  for (const PushedPart& part : kPushedParts) text += std::string(" ") + part.option;
  return usageFailure(text);
}

ExitStatus run(const Session& session, const PropagateOptions& options) {
  if (options.stop) return stopPropagation(session, options.path);
  if (options.mask == 0) {
    if (options.follow) return followPropagation(session, options.path);
    throw nothingToPush();
  }
  if (options.dryRun) return tryPropagation(session, options.path, options.mask);
  return startPropagation(session, options.path, options.mask, options.follow);
}

void addParts(CLI::App& command, const std::shared_ptr<PropagateOptions>& options,
              CLI::Option* stop) {
  for (const PushedPart& part : kPushedParts) {
    command
        .add_flag_callback(
            part.option, [options, bit = part.bit] { options->mask |= bit; }, part.description)
        ->excludes(stop);
  }
}

}  // namespace

void addPropagateCommand(CLI::App& program, Action& action) {
  const auto options = std::make_shared<PropagateOptions>();
  auto* command = program.add_subcommand(
      "propagate", "Push a folder's privileges down into everything inside it");
  command->add_option(kFolderOperand.name, options->path, kFolderOperand.description)->required();
  auto* stop = command->add_flag("--stop", options->stop, "End the run that works on the folder");
  addParts(*command, options, stop);
  auto* follow = command->add_flag(
      "--follow", options->follow,
      "Show how far it is until its end; without anything to push down: of the run that works on "
      "the folder");
  auto* dryRun =
      command->add_flag("--dry-run", options->dryRun, "Tell what would change, and change nothing");
  stop->excludes(follow)->excludes(dryRun);
  dryRun->excludes(follow);
  command->callback([options, &action] {
    action = [options](const Session& session) { return run(session, *options); };
  });
}

}  // namespace paddock::keelhouse
