#include <CLI/CLI.hpp>
#include <memory>

#include "keelhouse/options.h"
#include "keelhouse/path_command.h"
#include "keelhouse/share_commands.h"

namespace paddock::keelhouse {

namespace {

struct ShareOptions {
  std::string path;
  ShareChanges changes;
  bool force = false;
};
using SharedOptions = std::shared_ptr<ShareOptions>;

SharedOptions addPath(CLI::App& command) {
  auto options = std::make_shared<ShareOptions>();
  command.add_option(kFolderOperand.name, options->path, kFolderOperand.description)->required();
  return options;
}

// --vsp and --no-vsp, and the like.
CLI::Option* addSwitch(CLI::App& command, const std::string& protocol,
                       std::optional<bool>& published) {
  const std::string name = CLI::detail::to_lower(protocol);
  auto* on = command.add_flag_callback(
      "--" + name, [&published] { published = true; }, "Publish over " + protocol);
  auto* off = command.add_flag_callback(
      "--no-" + name, [&published] { published = false; }, "Do not publish over " + protocol);
  on->excludes(off);
  return off;
}

void addChanges(CLI::App& command, ShareChanges& changes) {
  command.add_option("--name", changes.name, "Name of the share point's record");
  command.add_option("--vsp-name", changes.vspName, "Name over VSP, at most 31 characters");
  auto* smbName = command.add_option("--smb-name", changes.smbName, "Name over SMB");
  auto* ftpName = command.add_option("--ftp-name", changes.ftpName, "Name over FTP");
  addSwitch(command, "VSP", changes.vsp);
  smbName->excludes(addSwitch(command, "SMB", changes.smb));
  ftpName->excludes(addSwitch(command, "FTP", changes.ftp));
}

CLI::Option* addNfs(CLI::App& command, ShareChanges& changes) {
  return command
      .add_option("--nfs", changes.nfsClients,
                  "Export over NFS to CLIENT or CLIENT(OPTION,OPTION); repeatable")
      ->type_name("CLIENT")
      ->allow_extra_args(false);
}

void addAdd(CLI::App& group, Action& action) {
  auto* command = group.add_subcommand("add", "Share a folder");
  const auto options = addPath(*command);
  addChanges(*command, options->changes);
  addNfs(*command, options->changes);
  command->add_flag("--force", options->force, "Share a path that is no folder, or not there yet");
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return addShare(session, options->path, options->changes, options->force);
    };
  });
}

void addSet(CLI::App& group, Action& action) {
  auto* command = group.add_subcommand("set", "Change how a folder is shared");
  const auto options = addPath(*command);
  addChanges(*command, options->changes);
  auto* nfs = addNfs(*command, options->changes);
  command->add_flag("--no-nfs", options->changes.noNfs, "Take the NFS export away")->excludes(nfs);
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return setShare(session, options->path, options->changes);
    };
  });
}

}  // namespace

void addShareCommands(CLI::App& program, Action& action) {
  auto* group = program.add_subcommand("share", "Shared folders");
  group->require_subcommand(1);
  group->add_subcommand("list", "All shared folders")->callback([&action] { action = listShares; });
  addPathCommand(*group, action, kFolderOperand, "show", "How a folder is shared", showShare);
  addAdd(*group, action);
  addSet(*group, action);
  addPathCommand(*group, action, kFolderOperand, "remove", "Share a folder no longer", removeShare);
}

}  // namespace paddock::keelhouse
