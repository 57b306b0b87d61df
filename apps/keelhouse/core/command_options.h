// The command groups' options.
#pragma once

#include <CLI/App.hpp>
#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <string>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// What was chosen on the command line.
using Action = std::function<ExitStatus(const Session&)>;

// Each adds its commands to the program; parsing sets `action` to the chosen one.
void addRawCommands(CLI::App& program, Action& action);
void addShareCommands(CLI::App& program, Action& action);
void addPrivilegeCommands(CLI::App& program, Action& action);
void addAclCommands(CLI::App& program, Action& action);
void addPropagateCommand(CLI::App& program, Action& action);
void addEffectiveCommands(CLI::App& program, Action& action);
void addVolumeCommands(CLI::App& program, Action& action);
void addRecordCommands(CLI::App& program, Action& action);
void addNodeCommands(CLI::App& program, Action& action);
void addAuditCommand(CLI::App& program, Action& action);

// A command whose one word is a path.

// How the help names the word.
struct PathOperand {
  const char* name;
  const char* description;
};

inline constexpr PathOperand kFolderOperand{"PATH", "The folder, or the name of its share"};

inline void addPathCommand(CLI::App& group, Action& action, const PathOperand& operand,
                           const std::string& name, const std::string& description,
                           ExitStatus (*run)(const Session&, const std::string&)) {
  auto* command = group.add_subcommand(name, description);
  const auto path = std::make_shared<std::string>();
  command->add_option(operand.name, *path, operand.description)->required();
  command->callback([path, run, &action] {
    action = [path, run](const Session& session) { return run(session, *path); };
  });
}

// The options that name an account of a directory node.

// --admin, and behind it the options `descriptorNames` for the descriptor of its password; gives
// the former.
inline CLI::Option* addAccount(CLI::App& command, NodeAccount& account,
                               const std::string& descriptorNames) {
  auto* admin =
      command.add_option("--admin", account.name, "Account that authenticates on the node first");
  admin->type_name("USER")->check([](const std::string& name) {
    return std::string(name.empty() ? "an account needs a name" : "");
  });
  command
      .add_option(descriptorNames, account.passwordDescriptor,
                  "Descriptor to read that account's password from")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber)
      ->needs(admin);
  return admin;
}

}  // namespace paddock::keelhouse
