#include "keelhouse/share/share_change_options.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

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

}  // namespace paddock::keelhouse
