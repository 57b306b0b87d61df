#include <CLI/CLI.hpp>
#include <memory>

#include "keelhouse/core/options.h"
#include "keelhouse/directory/node_commands.h"

namespace paddock::keelhouse {

namespace {

struct AuthOptions {
  std::string node;
  std::string user;
  int passwordDescriptor = -1;
};

void addAuth(CLI::App& program, Action& action) {
  const auto options = std::make_shared<AuthOptions>();
  auto* command =
      program.add_subcommand("auth", "Try whether a user may change records on a directory node");
  command->add_option("NODE", options->node, "Directory node, \"/Local\" for one")->required();
  command->add_option("USER", options->user, "The user's name there")->required();
  command
      ->add_option("--password-fd", options->passwordDescriptor,
                   "Descriptor to read the password from")
      ->check(CLI::NonNegativeNumber);
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return tryAuthentication(session, options->node, options->user, options->passwordDescriptor);
    };
  });
}

}  // namespace

void addNodeCommands(CLI::App& program, Action& action) {
  program.add_subcommand("nodes", "The directory nodes, whether they answer, and how fast")
      ->callback([&action] { action = showNodes; });
  addAuth(program, action);
}

}  // namespace paddock::keelhouse
