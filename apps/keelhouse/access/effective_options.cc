#include <CLI/CLI.hpp>
#include <memory>

#include "keelhouse/access/effective_commands.h"
#include "keelhouse/core/options.h"
#include "keelhouse/core/path_command.h"

namespace paddock::keelhouse {

namespace {

constexpr PathOperand kPath{"PATH", "The folder or file, or the name of a share"};

struct EffectiveOptions {
  std::string path;
  std::string user;
  bool explain = false;
};

void addEffective(CLI::App& program, Action& action) {
  const auto options = std::make_shared<EffectiveOptions>();
  auto* command = program.add_subcommand("effective", "What a user may do with a folder or file");
  command->add_option(kPath.name, options->path, kPath.description)->required();
  command->add_option("USER", options->user, "The user's name, or the number of a uid")->required();
  command->add_flag("--explain", options->explain,
                    "Why: which entry or mode decided, and where the kernel disagrees");
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return options->explain ? explainEffective(session, options->path, options->user)
                              : showEffective(session, options->path, options->user);
    };
  });
}

}  // namespace

void addEffectiveCommands(CLI::App& program, Action& action) {
  addEffective(program, action);
  addPathCommand(program, action, kPath, "who",
                 "Everybody who may read, write or change permissions there", showWho);
}

}  // namespace paddock::keelhouse
