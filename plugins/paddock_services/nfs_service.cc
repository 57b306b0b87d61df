#include "paddock_services/nfs_service.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "base/file_access.h"
#include "base/text.h"
#include "exports/export_options.h"

namespace paddock {

namespace {

constexpr const char* kExportfs = "/usr/sbin/exportfs";
constexpr const char* kExportsFile = "/etc/exports";
constexpr const char* kThreads = "/proc/fs/nfsd/threads";
constexpr const char* kProcesses = "/proc";
constexpr std::size_t kLongestNumber = 64;
constexpr const char* kPosixAcl = "system.posix_acl_access";
// The options of the table that say more than that it is exported.
constexpr std::array<std::string_view, 5> kShown = {"rw", "ro", "no_root_squash", "all_squash",
                                                    "insecure"};

bool isNumberName(const std::string& name) {
  return !name.empty() && name.find_first_not_of("0123456789") == std::string::npos;
}

// Neither a network, nor a netgroup, nor a name with wildcards.
bool isOneHost(const std::string& host) {
  return !host.starts_with('@') && host.find_first_of("*?[]/") == std::string::npos &&
         !host.starts_with("gss/");
}

bool isMountDaemon(const std::string& name) {
  return name == "rpc.mountd" || name == "nfsv4.exportd";
}

std::string withOptions(const std::string& host, const std::vector<std::string>& options) {
  std::string shown;
  for (const std::string& option : options) {
    if (std::find(kShown.begin(), kShown.end(), option) == kShown.end()) continue;
    shown += (shown.empty() ? "(" : ",") + option;
  }
  return printable(host) + (shown.empty() ? "" : shown + ")");
}

// Whether the kernel can provide file handles for objects on the file system.
bool canBeExported(const std::string& path) {
  constexpr unsigned kRoom = 128;
  alignas(file_handle) std::array<char, sizeof(file_handle) + kRoom> bytes{};
  auto* const handle = reinterpret_cast<file_handle*>(bytes.data());
  handle->handle_bytes = kRoom;
  int mount = 0;
  return ::name_to_handle_at(AT_FDCWD, path.c_str(), handle, &mount, AT_SYMLINK_FOLLOW) == 0 ||
         (errno != EOPNOTSUPP && errno != ENOSYS);
}

bool keepsKernelLists(const std::string& path) {
  return ::getxattr(path.c_str(), kPosixAcl, nullptr, 0) >= 0 || errno != ENOTSUP;
}

// One state of several faults: their reasons together, each with its advice.
ProtocolState joined(const std::vector<ProtocolState>& faults) {
  ProtocolState all = faults.front();
  for (std::size_t at = 1; at < faults.size(); ++at) {
    const ProtocolState& next = faults[at];
    all.reason += (all.advice.empty() ? "" : " (" + all.advice + ")") + "; " + next.reason;
    all.advice = next.advice;
    if (next.kind == ProtocolState::Kind::notServed) all.kind = next.kind;
  }
  return all;
}

}  // namespace

std::optional<std::string> exportClientFault(const NFSExportClient& client, HostResolver& hosts) {
  for (const std::string& option : client.options) {
    if (!isExportOption(option))
      return "exportfs does not know the option \"" + printable(option) + "\" of " +
             printable(client.host);
  }
  if (!isOneHost(client.host)) return std::nullopt;
  const HostAddresses& found = hosts.of(client.host);
  if (found.outcome != HostAddresses::Outcome::none) return std::nullopt;
  return "the host " + printable(client.host) + " does not resolve: " + found.reason;
}

NfsService::NfsService(const AskedWorld& world) : world_(world) {}

NFSExportParser& NfsService::exportsFile() {
  if (!exportsFile_) exportsFile_ = NFSExportParser::parserWithFile(world_.path(kExportsFile));
  return *exportsFile_;
}

bool NfsService::isExported(const std::string& path) {
  return exportsFile().exportWithPath(path) != nullptr;
}

const std::optional<ProtocolState>& NfsService::whyNotListed() {
  if (!asked_) {
    asked_ = true;
    askExportfs();
  }
  return whyNotListed_;
}

void NfsService::askExportfs() {
  // A server in the kernel belongs to the system, whatever programs a tree has.
  if (world_.isOwnTree() && !std::filesystem::exists(world_.path(kThreads))) {
    whyNotListed_ = unknownToTree(world_);
    return;
  }
  // The same table as exportfs -v lists, in the syntax of the exports file.
  const ProgramOutcome outcome = world_.ask(kExportfs, {"-s"});
  if (outcome.status == ENOENT && world_.isOwnTree()) {
    whyNotListed_ = unknownToTree(world_);
  } else if (outcome.status == ENOENT) {
    whyNotListed_ =
        ProtocolState::notServed("no NFS server is installed", "apt-get install nfs-kernel-server");
  } else if (outcome.status != 0 || outcome.exitStatus != 0) {
    whyNotListed_ = ProtocolState::unknown("exportfs does not list its table", "exportfs -v");
  }
  if (whyNotListed_) return;
  for (std::string_view rest = outcome.output; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    if (auto line = readExportsLine(rest.substr(0, end))) {
      for (NFSExportClient& client : line->clients)
        listed_.emplace(line->path, Listed{client.host, std::move(client.options)});
    }
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

bool NfsService::isRunning() {
  try {
    const auto text = readSmallFile(world_.path(kThreads), kLongestNumber);
    if (!text) return false;
    return parseInteger(std::string_view(*text).substr(0, text->find('\n'))).value_or(0) > 0;
  } catch (const std::system_error&) {
    return false;
  }
}

bool NfsService::answersMounts() const {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(world_.path(kProcesses), ignored)) {
    if (!isNumberName(entry.path().filename())) continue;
    try {
      const auto name = readSmallFile(entry.path() / "comm", kLongestNumber);
      if (name && isMountDaemon(name->substr(0, name->find('\n')))) return true;
    } catch (const std::system_error&) {
      continue;  // it has ended
    }
  }
  return false;
}

std::vector<ProtocolState> NfsService::serverFaults(const std::string& path) {
  std::vector<ProtocolState> faults;
  if (!canBeExported(path))
    faults.push_back(ProtocolState::notServed("its file system cannot be exported"));
  if (!isRunning()) {
    faults.push_back(
        ProtocolState::notServed("nfs-server is stopped", "systemctl start nfs-server"));
  } else if (!answersMounts()) {
    faults.push_back(ProtocolState::notServed("rpc.mountd, which the server asks, is stopped",
                                              "systemctl restart nfs-server"));
  }
  return faults;
}

// exportfs lists a host under the name or the address that the resolver gives for it.
const NfsService::Listed* NfsService::listedFor(const std::string& path, const std::string& host) {
  const auto [first, last] = listed_.equal_range(path);
  for (auto one = first; one != last; ++one) {
    if (asciiLower(one->second.host) == asciiLower(host)) return &one->second;
  }
  if (!isOneHost(host)) return nullptr;
  const std::set<std::string>& addresses = hosts_.of(host).addresses;
  for (auto one = first; one != last; ++one) {
    if (!isOneHost(one->second.host)) continue;
    for (const std::string& address : hosts_.of(one->second.host).addresses) {
      if (addresses.contains(address)) return &one->second;
    }
  }
  return nullptr;
}

ProtocolState NfsService::whyNotTaken(const NFSExportClient& client) {
  const std::string host = printable(client.host);
  // Its address may stand in the table.
  if (isOneHost(client.host) && hosts_.of(client.host).outcome == HostAddresses::Outcome::late)
    return ProtocolState::unknown("the host " + host + " does not resolve in time");
  return ProtocolState::notServed("exportfs has not taken the line for " + host, "exportfs -ra");
}

ProtocolState NfsService::stateOfManaged(const std::string& path,
                                         const std::vector<NFSExportClient>& clients) {
  std::vector<ProtocolState> faults;
  const std::vector<ProtocolState> ofServer = serverFaults(path);
  const bool runs = ofServer.empty();
  std::string served;
  for (const NFSExportClient& client : clients) {
    if (const Listed* listed = listedFor(path, client.host)) {
      served += (served.empty() ? "" : ", ") + withOptions(client.host, listed->options);
    } else if (auto fault = exportClientFault(client, hosts_)) {
      faults.push_back(ProtocolState::notServed(*fault));
    } else if (runs) {
      // A server that stops clears its table.
      faults.push_back(whyNotTaken(client));
    }
  }
  faults.insert(faults.end(), ofServer.begin(), ofServer.end());
  if (faults.empty())
    return ProtocolState::served(
        served + (keepsKernelLists(path) ? "" : ", its file system keeps no lists"));
  ProtocolState state = joined(faults);
  if (runs && !served.empty()) state.reason += "; served to " + served + " alone";
  return state;
}

ProtocolState NfsService::stateOfUnmanaged(const std::string& path) {
  if (whyNotListed() || !serverFaults(path).empty()) return {};
  std::string served;
  const auto [first, last] = listed_.equal_range(path);
  for (auto one = first; one != last; ++one)
    served += (served.empty() ? "" : ", ") + withOptions(one->second.host, one->second.options);
  if (served.empty()) return {};
  return ProtocolState::served(served);
}

// The contents of the file are unknown then, and so is the owner of the lines of the table.
ProtocolState NfsService::stateWithoutFile(const std::string& path) {
  const std::size_t beginning = ("cannot read " + exportsFile().file() + ": ").size();
  std::string reason =
      "the exports file cannot be read: " + printable(exportsFile().fault().substr(beginning));
  const ProtocolState listed = stateOfUnmanaged(path);
  if (listed.kind == ProtocolState::Kind::served) reason += "; the server has it for " + listed.as;
  return ProtocolState::unknown(reason);
}

ProtocolState NfsService::stateOf(const std::string& path) {
  if (!exportsFile().fault().empty()) return stateWithoutFile(path);
  const NFSExportRecordPtr record = exportsFile().exportWithPath(path);
  if (record == nullptr) {
    ProtocolState state = stateOfUnmanaged(path);
    if (state.kind == ProtocolState::Kind::served)
      state.as += ", exported outside the managed block";
    return state;
  }
  if (const auto& why = whyNotListed()) return *why;
  return stateOfManaged(path, record->clients());
}

}  // namespace paddock
