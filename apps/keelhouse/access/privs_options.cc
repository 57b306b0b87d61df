#include <CLI/CLI.hpp>
#include <memory>

#include "keelhouse/access/privs_commands.h"
#include "keelhouse/core/options.h"
#include "keelhouse/core/path_command.h"

namespace paddock::keelhouse {

namespace {

constexpr PathOperand kPath{"PATH", "The folder or file, or the name of a share"};

struct PrivilegeOptions {
  std::string path;
  PrivilegeChanges changes;
};

void addSet(CLI::App& group, Action& action) {
  auto* command = group.add_subcommand("set", "Change owner, group or mode");
  const auto options = std::make_shared<PrivilegeOptions>();
  command->add_option(kPath.name, options->path, kPath.description)->required();
  command->add_option("--owner", options->changes.owner, "The owner, a user's name");
  command->add_option("--group", options->changes.group, "The group, by its name");
  command->add_option("--mode", options->changes.mode,
                      "Three octal digits, such as 750, or four, such as 2770; with three a folder "
                      "keeps its set-id and sticky bits");
  auto* from = command->add_option("--from", options->changes.from,
                                   "Take all that privs show --json printed from FILE (\"-\": "
                                   "standard input)");
  from->type_name("FILE");
  for (const char* other : {"--owner", "--group", "--mode"}) {
    from->excludes(command->get_option(other));
  }
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return setPrivileges(session, options->path, options->changes);
    };
  });
}

}  // namespace

void addPrivilegeCommands(CLI::App& program, Action& action) {
  auto* group = program.add_subcommand("privs", "Owner, group and mode");
  group->require_subcommand(1);
  addPathCommand(*group, action, kPath, "show", "Owner, group, mode and ACL", showPrivileges);
  addSet(*group, action);
}

}  // namespace paddock::keelhouse
