#include "keelhouse/core/command_options.h"
#include "keelhouse/volume/index_commands.h"
#include "keelhouse/volume/quota_commands.h"

namespace paddock::keelhouse {

namespace {

constexpr PathOperand kVolume{"VOLUME", "The folder on which the volume is mounted"};

// The volume stands in front, where the other commands have it, or behind --volume.
void splitOperands(std::vector<std::string> operands, const CLI::Option& volume,
                   LimitWords& words) {
  if (volume.count() == 0) {
    if (operands.size() != 4) throw CLI::RequiredError("VOLUME, or --volume VOLUME,");
    words.volume = operands.front();
    operands.erase(operands.begin());
  } else if (operands.size() != 3) {
    throw CLI::ExtrasError({operands.back()});
  }
  words.name = operands[0];
  words.soft = operands[1];
  words.hard = operands[2];
}

void addSetLimits(CLI::App& group, Action& action) {
  auto* command = group.add_subcommand("set", "Limit what a user or a group may use of it");
  const auto words = std::make_shared<LimitWords>();
  const auto operands = std::make_shared<std::vector<std::string>>();
  command
      ->add_option("OPERAND", *operands,
                   "The volume, the user, and the limits: 10G, 500MiB, 1.5T, or none")
      ->required()
      ->expected(3, 4)
      ->option_text("[VOLUME] NAME SOFT HARD");
  auto* volume = command->add_option("--volume", words->volume, "The volume, instead of in front");
  volume->type_name("VOLUME");
  command->add_option("--files", words->files, "Limits of the number of files as well")
      ->type_name("SOFT HARD")
      ->expected(2);
  command->add_flag("--group", words->isGroup, "NAME is a group");
  command->callback([words, operands, volume, &action] {
    splitOperands(*operands, *volume, *words);
    action = [words](const Session& session) { return setLimits(session, *words); };
  });
}

void addQuotaCommands(CLI::App& program, Action& action) {
  auto* group = program.add_subcommand("quota", "Quotas of a volume");
  group->require_subcommand(1);
  addPathCommand(*group, action, kVolume, "show", "Who uses how much of it", showQuotas);
  addPathCommand(*group, action, kVolume, "on", "Switch user quotas on", switchQuotasOn);
  addPathCommand(*group, action, kVolume, "off", "Switch user quotas off", switchQuotasOff);
  addSetLimits(*group, action);
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
