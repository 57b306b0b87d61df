// The services that report failure by number, failing as a FaultPlan says. See faulty_services.h.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/accounts.h"
#include "platform/browser_information.h"
#include "platform/file_attributes.h"
#include "platform/host_name.h"
#include "platform/membership.h"
#include "platform/plugin_commands.h"
#include "platform/privileged_object.h"
#include "platform/program_runner.h"
#include "platform/quota_control.h"
#include "platform/status_files.h"
#include "platform/testing/fault_plan.h"
#include "platform/text_file.h"
#include "platform/volume_info.h"

namespace paddock {

// What every wrapper holds: the service that it forwards to, and the plan. Both outlive it.
template <typename Service>
class FaultyForwarder : public Service {
 public:
  FaultyForwarder(Service& wrapped, FaultPlan& plan) : wrapped_(wrapped), plan_(plan) {}

 protected:
  Service& wrapped() const { return wrapped_; }
  bool fails(std::string_view call) const { return plan_.fails(call); }
  int error() const { return plan_.errorNumber(); }

 private:
  Service& wrapped_;
  FaultPlan& plan_;
};

class FaultyMembership : public FaultyForwarder<Membership> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int uidToGuid(std::uint32_t uid, Guid& guid) override;
  int gidToGuid(std::uint32_t gid, Guid& guid) override;
  int guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) override;
};

class FaultyVolumeInfo : public FaultyForwarder<VolumeInfo> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int statfs(const std::string& path, MountedVolume& volume) override;
  int statistics(const std::string& path, VolumeStatistics& statistics) override;
  int getmntinfo(std::vector<MountedVolume>& volumes) override;
};

class FaultyHostName : public FaultyForwarder<HostName> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int gethostname(std::string& name) override;
};

class FaultyProgramRunner : public FaultyForwarder<ProgramRunner> {
 public:
  using FaultyForwarder::FaultyForwarder;
  ProgramOutcome run(const std::string& path, const std::vector<std::string>& arguments) override;
  int start(const std::string& path, const std::vector<std::string>& argumentVector) override;
  DetachedStart startDetached(const std::string& path,
                              const std::vector<std::string>& argumentVector) override;
  bool exists(const std::string& path) override;
  int probe(std::int64_t process) override;
};

class FaultyPrivilegedObjects : public FaultyForwarder<PrivilegedObjects> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int open(const std::string& path, PathUse use,
           std::unique_ptr<PrivilegedObject>& object) override;
};

class FaultyStatusFiles : public FaultyForwarder<StatusFiles> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int create(const std::string& pathTemplate, std::string& path) override;
  bool exists(const std::string& path) override;
  std::optional<Dictionary> read(const std::string& path) override;
  int remove(const std::string& path) override;
  int discard(const std::string& path) override;
};

class FaultyPluginCommands : public FaultyForwarder<PluginCommands> {
 public:
  using FaultyForwarder::FaultyForwarder;
  Dictionary doCommand(const std::string& bundle, const Dictionary& command,
                       const std::string& module, const std::optional<std::string>& user) override;
};

class FaultyQuotaControl : public FaultyForwarder<QuotaControl> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int quotactl(const std::string& path, std::uint32_t commandWord, std::uint32_t id,
               const QuotaArgument& argument) override;
};

class FaultyBrowserInformation : public FaultyForwarder<BrowserInformationService> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int read(const std::string& path, BrowserInformation& information) override;
  int write(const std::string& path, const BrowserInformation& information) override;
};

class FaultyTextFiles : public FaultyForwarder<TextFiles> {
 public:
  using FaultyForwarder::FaultyForwarder;
  using TextFiles::read;
  int read(const std::string& path, std::string& contents, FileIdentity& identity) override;
  int identify(const std::string& path, FileIdentity& identity) override;
  int replace(const std::string& path, const std::string& contents) override;
  int replaceKeeping(const std::string& path, const std::string& contents,
                     const FileIdentity* expected, Replacement& replacement) override;
  int copyOnce(const std::string& from, const std::string& to) override;
  int removeFile(const std::string& folder, const std::string& name) override;
  int namesBeginningWith(const std::string& folder, const std::string& prefix,
                         std::vector<std::string>& names) override;
  bool exists(const std::string& path) override;
};

class FaultyAccounts : public FaultyForwarder<Accounts> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int getpwnam(const std::string& name, std::uint32_t& uid) override;
  int getgrnam(const std::string& name, std::uint32_t& gid) override;
  int getpwuid(std::uint32_t uid, std::string& name) override;
  int getgrgid(std::uint32_t gid, std::string& name) override;
  int getgrnam_r(const std::string& name, std::size_t bufferSize, std::uint32_t& gid) override;
};

class FaultyFileAttributes : public FaultyForwarder<FileAttributeService> {
 public:
  using FaultyForwarder::FaultyForwarder;
  int read(const std::string& path, FileAttributes& attributes) override;
  int apply(const std::string& path, const FileAttributeChanges& changes) override;
  bool exists(const std::string& path) override;
  std::optional<RefusedLink> refusedLink(const std::string& path) override;
};

}  // namespace paddock
