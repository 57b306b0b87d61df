#include "keelhouse/index_commands.h"
#include "keelhouse/options.h"
#include "keelhouse/path_command.h"
#include "keelhouse/quota_commands.h"

namespace paddock::keelhouse {

namespace {

constexpr PathOperand kVolume{"VOLUME", "The folder on which the volume is mounted"};

void addQuotaCommands(CLI::App& program, Action& action) {
  auto* group = program.add_subcommand("quota", "User quotas of a volume");
  group->require_subcommand(1);
  addPathCommand(*group, action, kVolume, "show", "Who uses how much of it", showQuotas);
  addPathCommand(*group, action, kVolume, "on", "Switch user quotas on", switchQuotasOn);
  addPathCommand(*group, action, kVolume, "off", "Switch user quotas off", switchQuotasOff);
}

void addIndexCommands(CLI::App& program, Action& action) {
  auto* group = program.add_subcommand("index", "Search indexing of a shared folder");
  group->require_subcommand(1);
  addPathCommand(*group, action, kFolderOperand, "status", "Whether it is indexed", showIndexing);
  addPathCommand(*group, action, kFolderOperand, "on", "Index it", switchIndexingOn);
  addPathCommand(*group, action, kFolderOperand, "off", "Index it no longer", switchIndexingOff);
}

}  // namespace

void addVolumeCommands(CLI::App& program, Action& action) {
  addQuotaCommands(program, action);
  addIndexCommands(program, action);
}

}  // namespace paddock::keelhouse
