#include <CLI/CLI.hpp>
#include <memory>

#include "keelhouse/core/account_options.h"
#include "keelhouse/core/options.h"
#include "keelhouse/core/path_command.h"
#include "keelhouse/share/served_states.h"
#include "keelhouse/share/share_change_options.h"
#include "keelhouse/share/share_commands.h"
#include "keelhouse/share/share_moves.h"

namespace paddock::keelhouse {

namespace {

struct ShareOptions {
  std::string path;
  ShareChanges changes;
  NodeAccount account;
  bool force = false;
  ShareSources sources;
};
using SharedOptions = std::shared_ptr<ShareOptions>;

// A command with a path and the account for the node by which clients automount.
CLI::App* addCommand(CLI::App& group, const char* name, const char* description,
                     const SharedOptions& options) {
  auto* command = group.add_subcommand(name, description);
  command->add_option(kFolderOperand.name, options->path, kFolderOperand.description)->required();
  addAccount(*command, options->account, "--password-fd,--admin-password-fd");
  return command;
}

void addFrom(CLI::App& command, const SharedOptions& options) {
  command
      .add_option("--from", options->sources.from,
                  "Take all that share show --json printed from FILE (\"-\": standard input)")
      ->type_name("FILE");
}

void addList(CLI::App& group, Action& action) {
  struct ListOptions {
    bool check = false;
    bool requireServed = false;
  };
  const auto options = std::make_shared<ListOptions>();
  auto* command = group.add_subcommand("list", "All shared folders");
  auto* check = command->add_flag("--check", options->check,
                                  "Ask the services over what each of them is served");
  command
      ->add_flag("--require-served", options->requireServed,
                 "End with status 5 when one of them is not served")
      ->needs(check);
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return options->check ? listServedStates(session, options->requireServed)
                            : listShares(session);
    };
  });
}

void addAdd(CLI::App& group, Action& action) {
  const auto options = std::make_shared<ShareOptions>();
  auto* command = addCommand(group, "add", "Share a folder", options);
  command->get_option(kFolderOperand.name)->description("The folder; relative to the current one");
  addShareChanges(*command, options->changes);
  addFrom(*command, options);
  command
      ->add_option("--team", options->sources.team,
                   "Make it a folder in which the members of GROUP work together: its group, mode "
                   "2770, and read,write:inherit for the group")
      ->type_name("GROUP");
  auto* automount = command->get_option("--automount");
  automount->needs(command->get_option("--node"));
  command->get_option("--node")->needs(automount);
  command->add_flag("--force", options->force, "Share a path that is no folder, or not there yet");
  command->callback([options, &action] {
    action = [options](const Session& session) {
      // A document may have an automount, too.
      if (!options->account.name.empty() && !options->changes.automountPath &&
          !options->sources.from) {
        throw usageFailure("--admin needs --automount");
      }
      return addShare(session, options->path, options->changes, options->account, options->force,
                      options->sources);
    };
  });
}

void addSet(CLI::App& group, Action& action) {
  const auto options = std::make_shared<ShareOptions>();
  auto* command = addCommand(group, "set", "Change how a folder is shared", options);
  addShareChanges(*command, options->changes);
  addShareWithdrawals(*command, options->changes);
  addFrom(*command, options);
  command->get_option("--node")->needs(command->get_option("--automount"));
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return setShare(session, options->path, options->changes, options->account,
                      options->sources.from);
    };
  });
}

void addRemove(CLI::App& group, Action& action) {
  const auto options = std::make_shared<ShareOptions>();
  const auto name = std::make_shared<std::string>();
  auto* command = addCommand(group, "remove", "Share a folder no longer", options);
  auto* path = command->get_option(kFolderOperand.name)->required(false);
  command
      ->add_option("--name", *name,
                   "Remove the record NAME of a share point that was never finished")
      ->type_name("NAME")
      ->excludes(path);
  command->callback([options, name, path, &action] {
    action = [options, name, isNamed = path->count() == 0](const Session& session) {
      if (!isNamed) return removeShare(session, options->path, options->account);
      if (name->empty())
        throw usageFailure("share remove: say which share, by PATH or --name NAME");
      return removeUnfinished(session, *name);
    };
  });
}

void addMove(CLI::App& group, Action& action) {
  const auto options = std::make_shared<ShareOptions>();
  const auto newFolder = std::make_shared<std::string>();
  auto* command = addCommand(group, "move", "Share another folder in its place", options);
  command->add_option("NEWPATH", *newFolder, "That folder, which is there already")->required();
  command->callback([options, newFolder, &action] {
    action = [options, newFolder](const Session& session) {
      return moveShare(session, options->path, *newFolder, options->account);
    };
  });
}

void addRename(CLI::App& group, Action& action) {
  const auto options = std::make_shared<ShareOptions>();
  const auto renaming = std::make_shared<Renaming>();
  auto* command = addCommand(group, "rename",
                             "Change its name, and those over VSP, SMB and FTP like it", options);
  command->add_option("NEWNAME", renaming->name, "The new name of the share point's record")
      ->required();
  auto* recordOnly = command->add_flag("--record-only", renaming->recordOnly,
                                       "Leave the names over VSP, SMB and FTP as they are");
  command->add_option("--vsp-name", renaming->vspName, "Name over VSP")->excludes(recordOnly);
  command->add_option("--smb-name", renaming->smbName, "Name over SMB")->excludes(recordOnly);
  command->add_option("--ftp-name", renaming->ftpName, "Name over FTP")->excludes(recordOnly);
  command->callback([options, renaming, &action] {
    action = [options, renaming](const Session& session) {
      return renameShare(session, options->path, *renaming, options->account);
    };
  });
}

}  // namespace

void addShareCommands(CLI::App& program, Action& action) {
  auto* group = program.add_subcommand("share", "Shared folders");
  group->require_subcommand(1);
  addList(*group, action);
  addPathCommand(*group, action, kFolderOperand, "show", "How a folder is shared", showShare);
  addAdd(*group, action);
  addSet(*group, action);
  addRemove(*group, action);
  addMove(*group, action);
  addRename(*group, action);
}

}  // namespace paddock::keelhouse
