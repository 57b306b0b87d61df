#include "keelhouse/share/share_options.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>
#include <string>

#include "keelhouse/core/command_options.h"
#include "keelhouse/share/served_states.h"
#include "keelhouse/share/share_commands.h"
#include "keelhouse/share/share_moves.h"

namespace paddock::keelhouse {

namespace {

// --NAME and --no-NAME; gives the latter.
CLI::Option* addSwitch(CLI::App& command, const std::string& name, std::optional<bool>& setting,
                       const std::string& on, const std::string& off) {
  auto* yes = command.add_flag_callback(
      "--" + name, [&setting] { setting = true; }, on);
  auto* no = command.add_flag_callback(
      "--no-" + name, [&setting] { setting = false; }, off);
  yes->excludes(no);
  return no;
}

CLI::Option* addProtocol(CLI::App& command, const std::string& protocol,
                         std::optional<bool>& published) {
  return addSwitch(command, CLI::detail::to_lower(protocol), published, "Publish over " + protocol,
                   "Do not publish over " + protocol);
}

void addNames(CLI::App& command, ShareChanges& changes) {
  command.add_option("--name", changes.name, "Name of the share point's record");
  command.add_option("--vsp-name", changes.vspName, "Name over VSP, at most 31 characters");
  auto* smbName = command.add_option("--smb-name", changes.smbName, "Name over SMB");
  auto* ftpName = command.add_option("--ftp-name", changes.ftpName, "Name over FTP");
  addProtocol(command, "VSP", changes.vsp);
  smbName->excludes(addProtocol(command, "SMB", changes.smb));
  ftpName->excludes(addProtocol(command, "FTP", changes.ftp));
}

// Where the word behind --nfs is the folder's path, that is what the user should hear.
std::string checkClient(const std::string& client) {
  if (!client.starts_with('/')) return {};
  return client + " is no NFS client; write the PATH before --nfs";
}

void addNfs(CLI::App& command, ShareChanges& changes) {
  command
      .add_option("--nfs", changes.nfsClients,
                  "Export over NFS to CLIENT or CLIENT(OPTION,OPTION), repeatable; with "
                  "--automount clients mount over NFS, and CLIENT may be left out")
      ->type_name("CLIENT")
      ->type_size(0, 1)
      ->allow_extra_args(false)
      ->check(checkClient);
}

void addSmbParameters(CLI::App& command, SmbChanges& changes) {
  command.add_option("--comment", changes.comment, "What clients see beside its name over SMB")
      ->type_name("TEXT");
  command
      .add_option("--allow-hosts", changes.allowHosts,
                  "Who may connect over SMB: addresses, networks, hosts, commas between")
      ->type_name("LIST");
  command
      .add_option("--option", changes.options,
                  "Another parameter of smb.conf for it, \"KEY = VALUE\", repeatable")
      ->type_name("PARAMETER")
      ->type_size(1)
      ->allow_extra_args(false);
}

}  // namespace

void addShareChanges(CLI::App& command, ShareChanges& changes) {
  addNames(command, changes);
  addNfs(command, changes);
  command
      .add_option("--automount", changes.automountPath,
                  "Have clients mount the folder at MOUNTPATH, over VSP unless --nfs is given")
      ->type_name("MOUNTPATH");
  command.add_option("--node", changes.automountNode, "Directory node whose clients automount it")
      ->type_name("NODE");
  addSwitch(command, "backup", changes.backup, "Offer it as a backup destination",
            "Do not offer it as a backup destination");
  addSwitch(command, "index", changes.indexed, "Index its volume for search", "Do not index it");
  SmbChanges& smb = changes.smbOptions;
  addSwitch(command, "read-only", smb.readOnly, "Let nobody write over SMB",
            "Let who may write do so over SMB");
  addSwitch(command, "guest", smb.guest, "Let people in over SMB without a password",
            "Let nobody in over SMB without a password");
  addSwitch(command, "hide", smb.hidden, "Do not list it over SMB", "List it over SMB");
  addSwitch(command, "recycle", smb.recycle, "Keep what is deleted over SMB, in .recycle",
            "Delete what is deleted over SMB");
  addSmbParameters(command, smb);
  command.add_flag("--require-served", changes.requireServed,
                   "End with status 5 when it is not served");
}

void addShareWithdrawals(CLI::App& command, ShareChanges& changes) {
  command.add_flag("--no-nfs", changes.noNfs, "Take the NFS export away")
      ->excludes(command.get_option("--nfs"));
  command.add_flag("--no-automount", changes.noAutomount, "Have clients automount it no longer")
      ->excludes(command.get_option("--automount"))
      ->excludes(command.get_option("--node"));
  SmbChanges& smb = changes.smbOptions;
  command
      .add_flag_callback(
          "--no-comment", [&smb] { smb.comment = ""; }, "Show the record's name again")
      ->excludes(command.get_option("--comment"));
  command
      .add_flag_callback(
          "--no-allow-hosts", [&smb] { smb.allowHosts = ""; }, "Let all hosts connect over SMB")
      ->excludes(command.get_option("--allow-hosts"));
  command.add_option("--no-option", smb.noOptions, "Take the parameter KEY away again, repeatable")
      ->type_name("KEY")
      ->type_size(1)
      ->allow_extra_args(false);
}

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
