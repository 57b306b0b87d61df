#include "paddock_services/services_handler.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/status.h"
#include "base/system_call.h"
#include "base/text.h"
#include "exports/nfs_export_parser.h"
#include "paddock/host.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"
#include "paddock_services/nfs_service.h"
#include "paddock_services/share_check.h"
#include "paddock_services/share_point_names.h"
#include "paddock_services/smb_service.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/dnssd/advertised_services.h"
#include "protocol/keys.h"

namespace paddock {

namespace {

using Kind = ProtocolState::Kind;

// Each responds immediately, or is faulty.
constexpr std::chrono::seconds kProgramTime{10};
// Each of them is asked of every service.
constexpr std::size_t kMostPaths = 1000;
// A name is first queried on the network, which takes a second.
constexpr std::chrono::milliseconds kAdvertisingTime{2500};
constexpr std::chrono::milliseconds kShortTime{200};
constexpr const char* kVspPlugin = "paddock_vsp";

ProgramOutcome askHost(const std::string& path, const std::vector<std::string>& arguments) {
  ProgramResult result = askProgram(path, arguments, kProgramTime);
  return {result.status, std::move(result.output), std::move(result.errorOutput),
          result.exitStatus};
}

ProgramOutcome askNobody(const std::string& /*path*/, const std::vector<std::string>& /*words*/) {
  return {ENOENT, {}, {}, 0};
}

AskedWorld worldOfHost(bool duringChange) {
  const bool quiet = duringChange && !host().root().empty();
  return {host().root(), host().configuration(), quiet ? askNobody : askHost};
}

struct Folder {
  const char* word = "there";
  std::string fault;  // empty when it is there
};

Folder folderAt(const std::string& path) {
  struct stat status {};
  const int error = errnoOf([&] { return ::stat(path.c_str(), &status); });
  if (error == ENOENT || error == ENOTDIR) return {"gone", "its folder is gone"};
  if (error != 0)
    return {"unknown", "its folder cannot be seen: " + std::generic_category().message(error)};
  if (!S_ISDIR(status.st_mode)) return {"no folder", "it is no folder"};
  return {};
}

std::string configuredVspState(const Dictionary& configuration) {
  const Dictionary* table = configuration.dictionary("vsp");
  const std::string* state = table != nullptr ? table->string("state") : nullptr;
  return state != nullptr ? *state : std::string();
}

bool hasVspCommand(const Dictionary& configuration) {
  const Dictionary* table = configuration.dictionary("vsp");
  const Array* command = table != nullptr ? table->array("sync_command") : nullptr;
  return command != nullptr && !command->empty();
}

ProtocolState askVsp(const std::string& name, const std::string& configured) {
  std::string state;
  try {
    const Dictionary reply = host().deliverCommand(kVspPlugin, {{"command", "getState"}});
    if (const std::string* text = reply.string("state")) state = *text;
  } catch (const std::exception& error) {
    return ProtocolState::unknown(error.what());
  }
  if (state == "RUNNING") return ProtocolState::served(printable(name));
  if (state != "STOPPED") return ProtocolState::unknown("paddock_vsp tells no state");
  constexpr std::string_view kUnit = "unit:";
  return ProtocolState::notServed(
      "the VSP server is stopped",
      configured.starts_with(kUnit) ? "systemctl start " + configured.substr(kUnit.size()) : "");
}

ProtocolState vspStateOf(const AskedWorld& world, const SharePointNames& share, bool duringChange) {
  if (!share.isSharedOverVsp || share.overVsp.empty()) return {};
  const std::string configured = configuredVspState(world.configuration);
  const bool isSaid = configured.empty() || configured == "running";
  if (isSaid && !hasVspCommand(world.configuration))
    return ProtocolState::kept(share.overVsp, "no VSP server is configured");
  if (isSaid)
    return ProtocolState::unknown("nothing says whether the VSP server runs",
                                  "[vsp] state of the configuration");
  if (duringChange && world.isOwnTree()) return unknownToTree(world);
  return askVsp(share.overVsp, configured);
}

ProtocolState ftpStateOf(const SharePointNames& share) {
  if (share.overFtp.empty()) return {};
  return ProtocolState::kept(share.overFtp, "no FTP server is configured by this system");
}

// What all share points of one reply are asked of.
struct Asked {
  const AskedWorld& world;
  SmbService& smb;
  NfsService& nfs;
  bool duringChange;
  std::chrono::milliseconds advertisingTime;  // for one that is not found
};

bool mayAdvertise(const Dictionary& configuration) {
  const Dictionary* table = configuration.dictionary("dnssd");
  return table == nullptr || table->boolean("enabled").value_or(true);
}

// As the record of the advertisement has it (store/backup_advertisement).
ProtocolState advertisedStateOf(Asked& asked, const SharePointNames& share) {
  if (!share.isBackup || !share.isSharedOverVsp) return {};
  if (!mayAdvertise(asked.world.configuration))
    return ProtocolState::notServed("it is switched off", "[dnssd] enabled of the configuration");
  const AdvertisedService found =
      findAdvertised("_adisk._tcp", "=adVN=" + share.overVsp + ",adVF=", asked.advertisingTime);
  if (found.outcome == AdvertisedService::Outcome::found)
    return ProtocolState::served(printable(share.overVsp) + " of " + printable(found.name));
  // The wait for a missing name happens once.
  asked.advertisingTime = kShortTime;
  switch (found.outcome) {
    case AdvertisedService::Outcome::noDaemon:
      return ProtocolState::notServed("the Avahi daemon is stopped",
                                      "systemctl start avahi-daemon");
    case AdvertisedService::Outcome::notFound:
      if (!asked.duringChange)
        return ProtocolState::notServed("Avahi does not advertise it",
                                        "journalctl -u paddockd says why");
      return ProtocolState::unknown("Avahi does not advertise it yet");
    default:
      return ProtocolState::unknown("Avahi cannot be asked: " + found.reason);
  }
}

std::vector<NamedState> statesOf(Asked& asked, const SharePointNames& share, const Folder& folder) {
  ProtocolState smb;
  ProtocolState nfs;
  if (folder.fault.empty()) {
    smb = asked.smb.stateOf(share);
    nfs = asked.nfs.stateOf(share.path);
  } else {
    if (!share.overSmb.empty()) smb = ProtocolState::notServed(folder.fault);
    if (asked.nfs.isExported(share.path)) nfs = ProtocolState::notServed(folder.fault);
  }
  return {{"SMB", smb},
          {"NFS", nfs},
          {"VSP", vspStateOf(asked.world, share, asked.duringChange)},
          {"DNS-SD", advertisedStateOf(asked, share)},
          {"FTP", ftpStateOf(share)}};
}

std::string keyOf(const std::string& protocol) {
  if (protocol == "SMB") return "smb";
  if (protocol == "NFS") return "nfs";
  if (protocol == "VSP") return "vsp";
  return protocol == "FTP" ? "ftp" : "dnssd";
}

bool isServed(const std::vector<NamedState>& states, const Folder& folder) {
  for (const NamedState& one : states) {
    if (one.state.kind == Kind::notServed || one.state.kind == Kind::unknown) return false;
  }
  return folder.fault.empty() &&
         std::any_of(states.begin(), states.end(),
                     [](const NamedState& one) { return one.state.kind == Kind::served; });
}

std::string sentenceFor(const std::vector<NamedState>& states, const Folder& folder,
                        bool isShared) {
  std::string text = sentenceOf(states);
  if (isShared && text.empty())
    text = folder.fault.empty() ? "Shared over no protocol" : "Not served: " + folder.fault;
  return text;
}

Dictionary described(Asked& asked, const SharePointNames& share, bool isShared) {
  const Folder folder = folderAt(share.path);
  const std::vector<NamedState> states = statesOf(asked, share, folder);
  Dictionary protocols;
  for (const NamedState& one : states) protocols.set(keyOf(one.protocol), dictionaryOf(one.state));
  return {{"path", share.path},
          {protocol::kIsShared, isShared},
          {"folder", folder.word},
          {"protocols", std::move(protocols)},
          {"isServed", isServed(states, folder)},
          {"sentence", sentenceFor(states, folder, isShared)}};
}

Dictionary failureOf(const DirectoryError& error) {
  logMessage(kLogError, std::string("paddock_services: ") + error.what());
  const Status status = error.status().value_or(EIO);
  return {{"status", status != 0 ? status : EIO}, {"error", error.what()}};
}

Services servicesOf(LinuxTextFiles& files, HostLogger& logger, LinuxDirectoryService& directory) {
  Services services;
  services.textFiles = &files;
  services.logger = &logger;
  services.directory = &directory;
  return services;
}

}  // namespace

ServicesRequestHandler::ServicesRequestHandler()
    : directory_(configuredDirectory(host().configuration(), host().root())),
      services_(servicesOf(textFiles_, logger_, directory_)) {}

std::vector<PluginRequestHandler::Operation> ServicesRequestHandler::operations() const {
  return {{"getServed", false}, {"checkShare", false}, {"getExports", false}};
}

Dictionary ServicesRequestHandler::performOperation(std::string_view name,
                                                    const Dictionary& request) {
  try {
    if (name == "getServed") return getServed(request);
    if (name == "checkShare") return checkShare(request);
    if (name == "getExports") return getExports(request);
  } catch (const DirectoryError& error) {
    return failureOf(error);
  }
  throw std::invalid_argument("no operation " + std::string(name));
}

Dictionary ServicesRequestHandler::getServed(const Dictionary& request) {
  const std::vector<SharePointNames> all = readSharePointNames(directory_);
  const bool duringChange = request.boolean("duringChange").value_or(false);
  const AskedWorld world = worldOfHost(duringChange);
  SmbService smb(world);
  NfsService nfs(world);
  Asked asked{world, smb, nfs, duringChange, duringChange ? kShortTime : kAdvertisingTime};
  Array described_;
  const Array* paths = request.array("paths");
  if (paths == nullptr) {
    for (const SharePointNames& share : all) {
      if (!isUnfinished(share)) described_.emplace_back(described(asked, share, true));
    }
    return {{"status", kSuccess}, {"sharePoints", std::move(described_)}};
  }
  std::set<std::string> named;
  for (const Value& path : *paths) {
    if (path.string() == nullptr || !named.insert(*path.string()).second) continue;
    if (named.size() > kMostPaths) return {{"status", E2BIG}, {"error", std::strerror(E2BIG)}};
    const SharePointNames* share = sharePointAt(all, *path.string());
    SharePointNames nobodys;
    nobodys.path = *path.string();
    described_.emplace_back(
        described(asked, share != nullptr ? *share : nobodys, share != nullptr));
  }
  return {{"status", kSuccess}, {"sharePoints", std::move(described_)}};
}

Dictionary ServicesRequestHandler::getExports(const Dictionary& request) {
  const std::string* path = request.string("path");
  if (path == nullptr) return {{"status", EINVAL}, {"error", std::strerror(EINVAL)}};
  const auto file = NFSExportParser::parserWithFile(host().root() + "/etc/exports");
  if (!file->fault().empty()) {
    const int error = file->faultError();
    return {{"status", error}, {"error", std::strerror(error)}, {"message", file->fault()}};
  }
  Array exports;
  for (const NFSExportRecordPtr& record : file->exportsWithPath(*path)) {
    const Dictionary settings = record->dictionary();
    const Array* clients = settings.array("clients");
    exports.emplace_back(Dictionary{{"line", record->nfsExportFileLine()},
                                    {"clients", clients != nullptr ? *clients : Array{}}});
  }
  return {{"status", kSuccess}, {"exports", std::move(exports)}};
}

Dictionary ServicesRequestHandler::checkShare(const Dictionary& request) {
  const std::vector<SharePointNames> all = readSharePointNames(directory_);
  const AskedWorld world = worldOfHost(false);
  SmbService smb(world);
  Array unfinished;
  for (const SharePointNames& share : all) {
    if (isUnfinished(share)) unfinished.emplace_back(share.recordName);
  }
  return {{"status", kSuccess},
          {"refusals", refusalsOf(request, all, smb)},
          {"unfinished", std::move(unfinished)}};
}

}  // namespace paddock
