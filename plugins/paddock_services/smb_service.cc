#include "paddock_services/smb_service.h"

#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <system_error>
#include <thread>

#include "base/file_access.h"
#include "base/text.h"
#include "platform/linux/configured_options.h"
#include "samba/samba_text.h"

namespace paddock {

namespace {

using samba::faultOfShareName;
using samba::faultOfValue;
using samba::shareNameKey;

constexpr const char* kTestparm = "/usr/bin/testparm";
constexpr const char* kSmbControl = "/usr/bin/smbcontrol";
constexpr const char* kSmbClient = "/usr/bin/smbclient";
constexpr const char* kConfiguration = "/etc/samba/smb.conf";
constexpr const char* kPublished = "/etc/samba/paddock-shares.conf";
constexpr std::size_t kLargestFile = 16U << 20U;
// smbd is notified of a change, and reads it a moment later.
constexpr int kTries = 8;
constexpr std::chrono::milliseconds kPause{150};

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Calls `use` with each line, without blanks at its ends.
template <typename Use>
void forEachLine(std::string_view text, Use use) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    use(trimmed(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

bool isHeading(std::string_view line) {
  return line.size() > 2 && line.front() == '[' && line.back() == ']';
}

// The value when the line is "KEY = VALUE".
std::optional<std::string> valueOf(std::string_view line, std::string_view key) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos || trimmed(line.substr(0, equals)) != key) return {};
  return std::string(trimmed(line.substr(equals + 1)));
}

std::string quoted(const std::string& text) { return '"' + printable(text) + '"'; }

bool holdsLists(const std::string& path, const std::string& attribute) {
  return ::getxattr(path.c_str(), attribute.c_str(), nullptr, 0) >= 0 || errno != ENOTSUP;
}

}  // namespace

const SambaConfiguration::Section* SambaConfiguration::find(std::string_view name) const {
  const std::string key = shareNameKey(name);
  const auto found = std::find_if(shares.begin(), shares.end(), [&key](const Section& section) {
    return shareNameKey(section.name) == key;
  });
  return found != shares.end() ? &*found : nullptr;
}

SambaConfiguration parseTestparm(std::string_view output) {
  SambaConfiguration configuration;
  bool inGlobal = false;
  forEachLine(output, [&](std::string_view line) {
    if (isHeading(line)) {
      const std::string name(line.substr(1, line.size() - 2));
      inGlobal = name == "global";
      if (!inGlobal) configuration.shares.push_back({name, {}, true});
    } else if (inGlobal) {
      if (auto ports = valueOf(line, "smb ports")) configuration.ports = *ports;
    } else if (!configuration.shares.empty()) {
      SambaConfiguration::Section& section = configuration.shares.back();
      if (auto path = valueOf(line, "path")) section.path = *path;
      if (valueOf(line, "available") == "No") section.isAvailable = false;
    }
  });
  return configuration;
}

SmbService::SmbService(const AskedWorld& world) : world_(world) {}

const std::optional<ProtocolState>& SmbService::whyNotAsked() {
  if (!asked_) {
    askTestparm();
    readPublished();
    asked_ = true;
  }
  return whyNotAsked_;
}

void SmbService::askTestparm() {
  const ProgramOutcome outcome = world_.ask(kTestparm, {"-s", world_.path(kConfiguration)});
  if (outcome.status == ENOENT && world_.isOwnTree()) {
    whyNotAsked_ = unknownToTree(world_);
  } else if (outcome.status == ENOENT) {
    whyNotAsked_ = ProtocolState::notServed("Samba is not installed", "apt-get install samba");
  } else if (outcome.status != 0) {
    whyNotAsked_ =
        ProtocolState::unknown("testparm: " + std::generic_category().message(outcome.status));
  } else if (outcome.exitStatus != 0) {
    whyNotAsked_ = ProtocolState::unknown("testparm cannot read " + world_.path(kConfiguration),
                                          "testparm -s says why");
  } else {
    configuration_ = parseTestparm(outcome.output);
  }
}

void SmbService::readPublished() {
  std::optional<std::string> text;
  try {
    text = readSmallFile(world_.path(kPublished), kLargestFile);
  } catch (const std::system_error&) {
    return;
  }
  if (!text) return;
  hasPublished_ = true;
  forEachLine(*text, [this](std::string_view line) {
    if (isHeading(line)) published_.push_back({std::string(line.substr(1, line.size() - 2)), {}});
    if (published_.empty() || !published_.back().path.empty()) return;
    if (auto path = valueOf(line, "path")) published_.back().path = *path;
  });
}

const SmbService::Published* SmbService::published(std::string_view name) const {
  const std::string key = shareNameKey(name);
  const auto found =
      std::find_if(published_.begin(), published_.end(),
                   [&key](const Published& section) { return shareNameKey(section.name) == key; });
  return found != published_.end() ? &*found : nullptr;
}

ProtocolState SmbService::whyNoSection(const std::string& name, const std::string& path) const {
  if (const std::string_view fault = faultOfShareName(name); !fault.empty())
    return ProtocolState::notServed("its name, " + quoted(name) + ", " + std::string(fault),
                                    "another one: --smb-name");
  if (const std::string_view fault = faultOfValue(path); !fault.empty())
    return ProtocolState::notServed("its path " + std::string(fault) +
                                    ", which Samba's configuration cannot carry");
  const Published* ours = published(name);
  if (ours == nullptr)
    return ProtocolState::notServed(world_.path(kPublished) + " does not have it",
                                    "/usr/libexec/samba/synchronize-shares writes it");
  return ProtocolState::notServed(
      world_.path(kConfiguration) + " does not include " + world_.path(kPublished),
      "add the line: include = " + world_.path(kPublished));
}

std::optional<ProtocolState> SmbService::whyNotRunning() {
  if (!askedServer_) {
    askedServer_ = true;
    const ProgramOutcome outcome =
        world_.ask(kSmbControl, {"-s", world_.path(kConfiguration), "smbd", "ping"});
    if (outcome.status == ENOENT && world_.isOwnTree()) {
      whyNotRunning_ = unknownToTree(world_);
    } else if (outcome.status != 0) {
      whyNotRunning_ =
          ProtocolState::unknown("smbcontrol: " + std::generic_category().message(outcome.status));
    } else if (outcome.exitStatus != 0 || outcome.output.find("PONG") == std::string::npos) {
      whyNotRunning_ = ProtocolState::notServed("smbd is stopped", "systemctl start smbd");
    }
  }
  return whyNotRunning_;
}

bool saysOneOf(const std::string& said, std::initializer_list<const char*> errors) {
  return std::any_of(errors.begin(), errors.end(), [&](const char* error) {
    return said.find(std::string("NT_STATUS_") + error) != std::string::npos;
  });
}

// An anonymous session may learn of a share without access to it: an existing one is denied, a
// missing one is a bad network name.
std::optional<ProtocolState> SmbService::whyRefused(const std::string& name) {
  std::vector<std::string> words{"-s", world_.path(kConfiguration), "//127.0.0.1/" + name};
  const std::string port = configuration_.ports.substr(0, configuration_.ports.find_first_of(" ,"));
  if (!port.empty()) words.insert(words.end(), {"-p", port});
  words.insert(words.end(), {"-t", "5", "-U", "%", "-c", "exit"});
  for (int left = kTries; left > 0; --left) {
    const ProgramOutcome outcome = world_.ask(kSmbClient, words);
    const std::string said = outcome.output + outcome.errorOutput;
    if (outcome.status != 0)
      return ProtocolState::unknown("smbd cannot be asked for the share: smbclient: " +
                                        std::generic_category().message(outcome.status),
                                    outcome.status == ENOENT ? "apt-get install smbclient" : "");
    if (saysOneOf(said, {"CONNECTION_REFUSED", "IO_TIMEOUT", "HOST_UNREACHABLE", "CONNECTION_RESET",
                         "CONNECTION_DISCONNECTED"}))
      return ProtocolState::unknown("smbd does not answer at 127.0.0.1");
    if (!saysOneOf(said, {"BAD_NETWORK_NAME"})) return std::nullopt;
    if (left > 1) std::this_thread::sleep_for(kPause);
  }
  return ProtocolState::notServed("the smbd that runs does not know the share",
                                  "systemctl restart smbd");
}

ProtocolState SmbService::stateOfHandMade(const std::string& path) {
  if (whyNotAsked()) return {};
  for (const auto& section : configuration_.shares) {
    if (section.path != path || !section.isAvailable || published(section.name) != nullptr)
      continue;
    if (whyNotRunning()) return {};
    return ProtocolState::served(printable(section.name) + " (by a section of smb.conf)");
  }
  return {};
}

ProtocolState SmbService::stateOf(const SharePointNames& sharePoint) {
  if (sharePoint.overSmb.empty()) return stateOfHandMade(sharePoint.path);
  if (!faultOfShareName(sharePoint.overSmb).empty() || !faultOfValue(sharePoint.path).empty())
    return whyNoSection(sharePoint.overSmb, sharePoint.path);
  if (const auto& why = whyNotAsked()) {
    // Whatever the state of Samba, the share is not in its configuration.
    const bool isLeftOut = hasPublished_ && published(sharePoint.overSmb) == nullptr;
    return isLeftOut ? whyNoSection(sharePoint.overSmb, sharePoint.path) : *why;
  }
  const auto* section = configuration_.find(sharePoint.overSmb);
  if (section == nullptr) return whyNoSection(sharePoint.overSmb, sharePoint.path);
  if (section->path != sharePoint.path)
    return ProtocolState::notServed("the section [" + printable(section->name) +
                                        "] of Samba's configuration has the path " +
                                        printable(section->path),
                                    "another name: --smb-name");
  if (!section->isAvailable) return ProtocolState::notServed("its section has \"available = no\"");
  if (auto why = whyNotRunning()) return *why;
  if (auto why = whyRefused(section->name)) return *why;
  const std::string attribute = configuredPrivileges(world_.configuration, world_.root).attribute;
  const bool lists = holdsLists(sharePoint.path, attribute);
  return ProtocolState::served(printable(section->name) +
                               (lists ? "" : " (its file system keeps no lists)"));
}

std::optional<std::string> SmbService::handMadeSectionFault(const std::string& name,
                                                            const std::string& path) {
  if (whyNotAsked()) return std::nullopt;
  const auto* section = configuration_.find(name);
  if (section == nullptr || section->path == path || published(name) != nullptr)
    return std::nullopt;
  return "the section [" + printable(section->name) + "] of " + world_.path(kConfiguration) +
         " has it" + (section->path.empty() ? "" : ", for " + printable(section->path));
}

}  // namespace paddock
