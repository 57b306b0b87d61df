// A command whose one word is a path.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "keelhouse/core/options.h"

namespace paddock::keelhouse {

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

}  // namespace paddock::keelhouse
