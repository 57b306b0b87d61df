#include "keelhouse/share/share_notes.h"

#include <algorithm>
#include <string_view>

#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

bool isSet(const Dictionary& sharePoint, const char* key) {
  return sharePoint.boolean(key).value_or(false);
}

bool hasVspName(const Dictionary& sharePoint) {
  const std::string* name = sharePoint.string(protocol::kNameOverVSP);
  return isSet(sharePoint, protocol::kIsSharedOverVSP) && name != nullptr && !name->empty();
}

}  // namespace

std::vector<std::string> notesOn(const Dictionary& sharePoint) {
  std::vector<std::string> notes;
  if (isSet(sharePoint, protocol::kIsAutomounted)) {
    const bool overNfs = sharePoint.integer(protocol::kAutomountFileSystemType).value_or(0) != 0;
    if (overNfs && sharePoint.dictionary(protocol::kNfsExportRecord) == nullptr) {
      notes.emplace_back(
          "clients are to automount it over NFS, but it is not exported itself (--nfs CLIENT)");
    }
    if (!overNfs && !hasVspName(sharePoint)) {
      notes.emplace_back(
          "clients are to automount it over VSP, but it is not published there (--vsp)");
    }
  }
  if (isSet(sharePoint, protocol::kIsBackstowBackup) && !hasVspName(sharePoint)) {
    notes.emplace_back(
        "it is not advertised as a backup destination until it is published over VSP (--vsp)");
  }
  const std::string* smbName = sharePoint.string(protocol::kNameOverSMB);
  const bool isOverSmb = smbName != nullptr && !smbName->empty();
  if (sharePoint.dictionary("smb") != nullptr && !isOverSmb) {
    notes.emplace_back("its options over SMB count when it is published there (--smb)");
  }
  return notes;
}

namespace {

bool isOn(const Dictionary* options, const char* key) {
  return options != nullptr && options->boolean(key).value_or(false);
}

// Everybody, a network, a netgroup or a pattern: exports(5).
bool isManyHosts(std::string_view host) {
  return host.find_first_of("*?[/") != std::string_view::npos || host.starts_with('@');
}

bool keepsRoot(const Dictionary& client) {
  const Array* options = client.array("options");
  if (options == nullptr) return false;
  // Of several the last one counts.
  bool keeps = false;
  for (const Value& option : *options) {
    if (option.string() == nullptr) continue;
    if (*option.string() == "no_root_squash") keeps = true;
    if (*option.string() == "root_squash" || *option.string() == "all_squash") keeps = false;
  }
  return keeps;
}

void warnOfRoot(const Dictionary& sharePoint, std::vector<std::string>& warnings) {
  const Dictionary* record = sharePoint.dictionary(protocol::kNfsExportRecord);
  const Array* clients = record != nullptr ? record->array("clients") : nullptr;
  if (clients == nullptr) return;
  for (const Value& value : *clients) {
    const Dictionary* client = value.dictionary();
    const std::string* host = client != nullptr ? client->string("host") : nullptr;
    if (host == nullptr || !isManyHosts(*host) || !keepsRoot(*client)) continue;
    warnings.push_back("no_root_squash for " + *host +
                       ": root of each of these hosts is root of what is shared here");
  }
}

bool isWorldWritable(const Dictionary& privileges) {
  const std::string* mode = privileges.string("privs");
  constexpr std::string_view kWritable = "2367";
  return mode != nullptr && !mode->empty() &&
         kWritable.find(mode->back()) != std::string_view::npos;
}

}  // namespace

std::vector<std::string> warningsOn(const Dictionary& sharePoint, const Dictionary& privileges) {
  std::vector<std::string> warnings;
  warnOfRoot(sharePoint, warnings);
  const Dictionary* smb = sharePoint.dictionary("smb");
  if (isOn(smb, "guest") && !isOn(smb, "readOnly")) {
    warnings.emplace_back(
        "guests may write over SMB, without a password, what the folder lets everybody write "
        "(--read-only)");
  }
  if (isWorldWritable(privileges)) {
    warnings.emplace_back("everybody may write to the folder: its mode is " +
                          *privileges.string("privs") + " (keelhouse privs set PATH --mode 775)");
  }
  return warnings;
}

}  // namespace paddock::keelhouse
