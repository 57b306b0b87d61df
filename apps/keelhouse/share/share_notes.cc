#include "keelhouse/share/share_notes.h"

namespace paddock::keelhouse {

namespace {

bool isOn(const Dictionary& sharePoint, const char* key) {
  return sharePoint.boolean(key).value_or(false);
}

bool hasVspName(const Dictionary& sharePoint) {
  const std::string* name = sharePoint.string("nameOverVSP");
  return isOn(sharePoint, "isSharedOverVSP") && name != nullptr && !name->empty();
}

}  // namespace

std::vector<std::string> notesOn(const Dictionary& sharePoint) {
  std::vector<std::string> notes;
  if (isOn(sharePoint, "isAutomounted")) {
    const bool overNfs = sharePoint.integer("automountFileSystemType").value_or(0) != 0;
    if (overNfs && sharePoint.dictionary("nfsExportRecord") == nullptr) {
      notes.emplace_back(
          "clients are to automount it over NFS, but it is not exported itself (--nfs CLIENT)");
    }
    if (!overNfs && !hasVspName(sharePoint)) {
      notes.emplace_back(
          "clients are to automount it over VSP, but it is not published there (--vsp)");
    }
  }
  if (isOn(sharePoint, "isBackstowBackup") && !hasVspName(sharePoint)) {
    notes.emplace_back(
        "it is not advertised as a backup destination until it is published over VSP (--vsp)");
  }
  const std::string* smbName = sharePoint.string("nameOverSMB");
  const bool isOverSmb = smbName != nullptr && !smbName->empty();
  if (sharePoint.dictionary("smb") != nullptr && !isOverSmb) {
    notes.emplace_back("its options over SMB count when it is published there (--smb)");
  }
  return notes;
}

}  // namespace paddock::keelhouse
