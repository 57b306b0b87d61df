// The command groups' options.
#pragma once

#include <CLI/App.hpp>
#include <functional>

#include "keelhouse/core/failure.h"
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

}  // namespace paddock::keelhouse
