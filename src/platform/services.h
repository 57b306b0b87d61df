// The platform services of the process.
//
// The workers are free functions; they reach their services through this one aggregate. The
// composition root installs it before the first request; a test installs its own for a scope.
#pragma once

#include <string>
#include <vector>

namespace paddock {

namespace acl {
class AclService;
}

class Accounts;
class BrowserInformationService;
class Clock;
class DirectoryService;
class FileAttributeService;
class HostName;
class Logger;
class Membership;
class MetadataStores;
class NetServices;
class PluginCommands;
class PrivilegedObjects;
class ProgramRunner;
class QuotaControl;
class SharedFileLists;
class StatusFiles;
class TextFiles;
class UuidSource;
class VolumeInfo;

struct Services {
  DirectoryService* directory = nullptr;
  Membership* membership = nullptr;
  VolumeInfo* volumeInfo = nullptr;
  HostName* hostName = nullptr;
  ProgramRunner* programRunner = nullptr;
  PluginCommands* pluginCommands = nullptr;
  Logger* logger = nullptr;
  Clock* clock = nullptr;
  UuidSource* uuidSource = nullptr;
  SharedFileLists* sharedFileLists = nullptr;
  TextFiles* textFiles = nullptr;
  Accounts* accounts = nullptr;
  FileAttributeService* fileAttributes = nullptr;
  acl::AclService* acl = nullptr;
  QuotaControl* quotaControl = nullptr;
  BrowserInformationService* browserInformation = nullptr;
  MetadataStores* metadataStores = nullptr;
  NetServices* netServices = nullptr;
  PrivilegedObjects* privilegedObjects = nullptr;
  StatusFiles* statusFiles = nullptr;
  std::string exportsPath = "/etc/exports";
  // For the program runner, which takes it below the host's root.
  std::string quotaCheckerPath = "/sbin/quotacheck";
  // The program that brings a volume's quota files up to date with what the kernel counts; empty
  // where it counts nothing.
  std::string quotaRefresherPath;
  // The argument vector of the command that is notified of changes of search indexing; empty: none.
  // Its first element is for the program runner, too.
  std::vector<std::string> indexingCommand;
};

// The installed services. Precondition: they are installed.
const Services& services();

// Installs `replacement` for the life of the guard, then what was there before. Guards nest;
// install and remove them only while no worker runs.
class ServicesGuard {
 public:
  explicit ServicesGuard(const Services& replacement);
  ServicesGuard(const ServicesGuard&) = delete;
  ServicesGuard& operator=(const ServicesGuard&) = delete;
  ~ServicesGuard();

 private:
  Services installed_;
  const Services* previous_;
};

}  // namespace paddock
