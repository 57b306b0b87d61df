#include "platform/testing/faulty_platform.h"

namespace paddock {

int FaultyMembership::uidToGuid(std::uint32_t uid, Guid& guid) {
  if (!fails("membership.uidToGuid")) return wrapped().uidToGuid(uid, guid);
  guid = {};
  return error();
}

int FaultyMembership::gidToGuid(std::uint32_t gid, Guid& guid) {
  if (!fails("membership.gidToGuid")) return wrapped().gidToGuid(gid, guid);
  guid = {};
  return error();
}

int FaultyMembership::guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) {
  if (!fails("membership.guidToId")) return wrapped().guidToId(guid, id, type);
  id = 0;
  return error();
}

int FaultyVolumeInfo::statfs(const std::string& path, MountedVolume& volume) {
  if (!fails("volumeInfo.statfs")) return wrapped().statfs(path, volume);
  volume = {};
  return error();
}

int FaultyVolumeInfo::statistics(const std::string& path, VolumeStatistics& statistics) {
  if (!fails("volumeInfo.statistics")) return wrapped().statistics(path, statistics);
  statistics = {};
  return error();
}

int FaultyVolumeInfo::getmntinfo(std::vector<MountedVolume>& volumes) {
  if (!fails("volumeInfo.getmntinfo")) return wrapped().getmntinfo(volumes);
  volumes.clear();
  return error();
}

int FaultyHostName::gethostname(std::string& name) {
  if (!fails("hostName.gethostname")) return wrapped().gethostname(name);
  name.clear();
  return error();
}

ProgramOutcome FaultyProgramRunner::run(const std::string& path,
                                        const std::vector<std::string>& arguments) {
  if (!fails("programRunner.run")) return wrapped().run(path, arguments);
  return {error(), "", ""};
}

int FaultyProgramRunner::start(const std::string& path,
                               const std::vector<std::string>& argumentVector) {
  return fails("programRunner.start") ? error() : wrapped().start(path, argumentVector);
}

DetachedStart FaultyProgramRunner::startDetached(const std::string& path,
                                                 const std::vector<std::string>& argumentVector) {
  if (!fails("programRunner.startDetached")) return wrapped().startDetached(path, argumentVector);
  return {.error = error(), .pid = 0, .detachError = 0};
}

bool FaultyProgramRunner::exists(const std::string& path) {
  return !fails("programRunner.exists") && wrapped().exists(path);
}

int FaultyProgramRunner::probe(std::int64_t process) {
  return fails("programRunner.probe") ? error() : wrapped().probe(process);
}

int FaultyPrivilegedObjects::open(const std::string& path, PathUse use,
                                  std::unique_ptr<PrivilegedObject>& object) {
  if (!fails("privilegedObjects.open")) return wrapped().open(path, use, object);
  object = nullptr;
  return error();
}

int FaultyStatusFiles::create(const std::string& pathTemplate, std::string& path) {
  if (!fails("statusFiles.create")) return wrapped().create(pathTemplate, path);
  path.clear();
  return error();
}

bool FaultyStatusFiles::exists(const std::string& path) {
  return !fails("statusFiles.exists") && wrapped().exists(path);
}

std::optional<Dictionary> FaultyStatusFiles::read(const std::string& path) {
  if (fails("statusFiles.read")) return std::nullopt;
  return wrapped().read(path);
}

int FaultyStatusFiles::remove(const std::string& path) {
  return fails("statusFiles.remove") ? error() : wrapped().remove(path);
}

int FaultyStatusFiles::discard(const std::string& path) {
  return fails("statusFiles.discard") ? error() : wrapped().discard(path);
}

Dictionary FaultyPluginCommands::doCommand(const std::string& bundle, const Dictionary& command,
                                           const std::string& module,
                                           const std::optional<std::string>& user) {
  if (fails("pluginCommands.doCommand")) return {};
  return wrapped().doCommand(bundle, command, module, user);
}

int FaultyQuotaControl::quotactl(const std::string& path, std::uint32_t commandWord,
                                 std::uint32_t id, const QuotaArgument& argument) {
  if (!fails("quotaControl.quotactl")) return wrapped().quotactl(path, commandWord, id, argument);
  if (std::uint32_t* const* state = std::get_if<std::uint32_t*>(&argument)) **state = 0;
  return error();
}

int FaultyBrowserInformation::read(const std::string& path, BrowserInformation& information) {
  if (!fails("browserInformation.read")) return wrapped().read(path, information);
  information = {};
  return error();
}

int FaultyBrowserInformation::write(const std::string& path,
                                    const BrowserInformation& information) {
  return fails("browserInformation.write") ? error() : wrapped().write(path, information);
}

int FaultyTextFiles::read(const std::string& path, std::string& contents, FileIdentity& identity) {
  if (!fails("textFiles.read")) return wrapped().read(path, contents, identity);
  contents.clear();
  identity = {};
  return error();
}

int FaultyTextFiles::identify(const std::string& path, FileIdentity& identity) {
  if (!fails("textFiles.identify")) return wrapped().identify(path, identity);
  identity = {};
  return error();
}

int FaultyTextFiles::replaceKeeping(const std::string& path, const std::string& contents,
                                    const FileIdentity* expected, Replacement& replacement) {
  if (!fails("textFiles.replace")) {
    return wrapped().replaceKeeping(path, contents, expected, replacement);
  }
  replacement = {};
  return error();
}

int FaultyTextFiles::namesBeginningWith(const std::string& folder, const std::string& prefix,
                                        std::vector<std::string>& names) {
  if (!fails("textFiles.namesBeginningWith")) {
    return wrapped().namesBeginningWith(folder, prefix, names);
  }
  names.clear();
  return error();
}

int FaultyTextFiles::replace(const std::string& path, const std::string& contents) {
  return fails("textFiles.replace") ? error() : wrapped().replace(path, contents);
}

int FaultyTextFiles::copyOnce(const std::string& from, const std::string& to) {
  return fails("textFiles.copyOnce") ? error() : wrapped().copyOnce(from, to);
}

int FaultyTextFiles::removeFile(const std::string& folder, const std::string& name) {
  return fails("textFiles.removeFile") ? error() : wrapped().removeFile(folder, name);
}

bool FaultyTextFiles::exists(const std::string& path) {
  return !fails("textFiles.exists") && wrapped().exists(path);
}

int FaultyAccounts::getpwnam(const std::string& name, std::uint32_t& uid) {
  if (!fails("accounts.getpwnam")) return wrapped().getpwnam(name, uid);
  uid = 0;
  return error();
}

int FaultyAccounts::getgrnam(const std::string& name, std::uint32_t& gid) {
  if (!fails("accounts.getgrnam")) return wrapped().getgrnam(name, gid);
  gid = 0;
  return error();
}

int FaultyAccounts::getpwuid(std::uint32_t uid, std::string& name) {
  if (!fails("accounts.getpwuid")) return wrapped().getpwuid(uid, name);
  name.clear();
  return error();
}

int FaultyAccounts::getgrgid(std::uint32_t gid, std::string& name) {
  if (!fails("accounts.getgrgid")) return wrapped().getgrgid(gid, name);
  name.clear();
  return error();
}

int FaultyAccounts::getgrnam_r(const std::string& name, std::size_t bufferSize,
                               std::uint32_t& gid) {
  if (!fails("accounts.getgrnam_r")) return wrapped().getgrnam_r(name, bufferSize, gid);
  gid = 0;
  return error();
}

int FaultyFileAttributes::read(const std::string& path, FileAttributes& attributes) {
  if (!fails("fileAttributes.read")) return wrapped().read(path, attributes);
  attributes = {};
  return error();
}

int FaultyFileAttributes::apply(const std::string& path, const FileAttributeChanges& changes) {
  return fails("fileAttributes.apply") ? error() : wrapped().apply(path, changes);
}

bool FaultyFileAttributes::exists(const std::string& path) {
  return !fails("fileAttributes.exists") && wrapped().exists(path);
}

std::optional<RefusedLink> FaultyFileAttributes::refusedLink(const std::string& path) {
  return fails("fileAttributes.refusedLink") ? std::nullopt : wrapped().refusedLink(path);
}

}  // namespace paddock
