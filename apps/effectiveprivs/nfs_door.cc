#include "effectiveprivs/nfs_door.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <string_view>

#include "base/text.h"
#include "exports/exports_entry.h"
#include "exports/exports_line.h"

namespace paddock::effectiveprivs {

namespace {

constexpr std::uint32_t kNobody = 65534;
constexpr std::uintmax_t kMostBytes = 16U << 20U;

std::optional<std::string> textOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string text;
  char character = 0;
  while (text.size() < kMostBytes && file.get(character)) text.push_back(character);
  return text;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The table ends each list of options with those of each flavour: "...,sec=sys:krb5,rw,...".
std::vector<std::string> optionsOfSys(const std::vector<std::string>& options) {
  std::vector<std::string> chosen;
  bool isChosen = true;
  bool hasFlavour = false;
  for (const std::string& option : options) {
    if (option.starts_with("sec=")) {
      const std::string flavours = ":" + option.substr(4) + ":";
      isChosen = flavours.find(":sys:") != std::string::npos || !hasFlavour;
      hasFlavour = true;
    }
    if (isChosen) chosen.push_back(option);
  }
  return chosen;
}

bool has(const NfsExport& entry, std::string_view yes, std::string_view no, bool usual) {
  bool found = usual;
  for (const std::string& option : entry.options) {
    if (option == yes) found = true;
    if (option == no) found = false;
  }
  return found;
}

std::uint32_t numberOf(const NfsExport& entry, const std::string& key) {
  std::uint32_t found = kNobody;
  for (const std::string& option : entry.options) {
    if (!option.starts_with(key)) continue;
    const auto number = parseInteger(std::string_view(option).substr(key.size()));
    if (number) found = static_cast<std::uint32_t>(*number);
  }
  return found;
}

// Whom the server takes the user for.
KernelPerson squashed(const NfsExport& entry, const KernelPerson& person) {
  const bool all = has(entry, "all_squash", "no_all_squash", false);
  const bool root = has(entry, "root_squash", "no_root_squash", true);
  const std::uint32_t anonymousGroup = numberOf(entry, "anongid=");
  if (all || (root && person.isRoot())) return {numberOf(entry, "anonuid="), {anonymousGroup}};
  KernelPerson seen = person;
  if (root) std::replace(seen.gids.begin(), seen.gids.end(), std::uint32_t{0}, anonymousGroup);
  return seen;
}

std::string optionsText(const NfsExport& entry) {
  const bool isReadOnly = has(entry, "ro", "rw", true);
  std::string text = isReadOnly ? "ro" : "rw";
  if (has(entry, "all_squash", "no_all_squash", false))
    text += ",all_squash,anonuid=" + std::to_string(numberOf(entry, "anonuid="));
  else
    text += has(entry, "root_squash", "no_root_squash", true) ? ",root_squash" : ",no_root_squash";
  for (const std::string& option : entry.options)
    if (option.starts_with("sec=") && option != "sec=sys") text += "," + option;
  return text;
}

bool isRunning() {
  const auto threads = textOf("/proc/fs/nfsd/threads");
  return threads && leadingInteger(*threads) > 0;
}

// Whether the path is reachable for a client that has mounted the export.
bool leadsTo(const NfsExport& entry, const PathFacts& facts) {
  if (entry.path == facts.path()) return true;
  const auto& above = facts.above();
  const auto start = std::find_if(above.begin(), above.end(), [&](const FolderAbove& folder) {
    return folder.path == entry.path;
  });
  if (start == above.end()) return false;
  return start->device == facts.device() || has(entry, "crossmnt", "nocrossmnt", false);
}

}  // namespace

std::vector<NfsExport> parseExportTable(const std::string& text) {
  std::vector<NfsExport> found;
  for (const std::string& line : linesOf(text)) {
    const auto read = readExportsLine(line);
    if (!read) continue;
    for (const NFSExportClient& client : read->clients)
      found.push_back({read->path, client.host, optionsOfSys(client.options)});
  }
  return found;
}

NfsDoor::NfsDoor(const std::string& root, const PathFacts& facts) : facts_(facts) {
  const std::string table = root + "/var/lib/nfs/etab";
  if (const auto text = textOf(table)) {
    exports_ = parseExportTable(*text);
    if (root.empty() && !isRunning()) fault_ = "the NFS server does not run";
  } else {
    readFile(root + "/etc/exports");
    fault_ =
        "the NFS server has exported nothing yet; this is what " + root + "/etc/exports says alone";
  }
  std::erase_if(exports_, [&](const NfsExport& entry) { return !leadsTo(entry, facts); });
}

void NfsDoor::readFile(const std::string& path) {
  const std::string text = textOf(path).value_or("");
  std::string_view rest = text;
  while (true) {
    const std::size_t start = rest.find_first_not_of(" \t\n\r\v\f");
    if (start == std::string_view::npos) return;
    rest.remove_prefix(start);
    const std::string_view entry = rest.substr(0, exportsEntryLength(rest));
    for (NfsExport& one : parseExportTable(joinedExportsEntry(entry)))
      exports_.push_back(std::move(one));
    rest.remove_prefix(entry.size());
  }
}

DoorRights NfsDoor::rightsOver(const NfsExport& entry, const KernelPerson& person) const {
  DoorRights rights = facts_.kernelRights(squashed(entry, person), entry.path);
  if (has(entry, "ro", "rw", true))
    restrict(rights.write, {Access::no, "exported read-only to " + entry.client});
  return rights;
}

DoorRights NfsDoor::rightsOf(const KernelPerson& person,
                             std::vector<NfsClientRights>& clients) const {
  if (exports_.empty()) return noRights("not exported over NFS");
  DoorRights best = noRights({});
  const auto improve = [](DoorRight& right, const DoorRight& other) {
    if (right.access != Access::yes && (other.access == Access::yes || right.why.empty()))
      right = other;
  };
  for (const NfsExport& entry : exports_) {
    const DoorRights rights = rightsOver(entry, person);
    clients.push_back({entry.client, entry.path, optionsText(entry), rights});
    improve(best.read, rights.read);
    improve(best.write, rights.write);
  }
  return fault_.empty() ? best : noRights(fault_);
}

}  // namespace paddock::effectiveprivs
