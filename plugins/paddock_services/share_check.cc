#include "paddock_services/share_check.h"

#include <algorithm>
#include <optional>
#include <string>

#include "base/text.h"
#include "paddock_services/nfs_service.h"
#include "platform/linux/process/case_fold.h"
#include "protocol/keys.h"
#include "samba/samba_text.h"

namespace paddock {

namespace {

using samba::isReservedShareName;
using samba::shareNameKey;

// So many hosts are resolved for one request.
constexpr std::size_t kMostClients = 1000;

const SharePointNames* otherWithName(const std::vector<SharePointNames>& all,
                                     const std::string& path, const std::string& name) {
  const std::string key = shareNameKey(name);
  const std::string own = caseFold(path);
  const auto found = std::find_if(all.begin(), all.end(), [&](const SharePointNames& other) {
    return caseFold(other.path) != own && shareNameKey(other.overSmb) == key;
  });
  return found != all.end() ? &*found : nullptr;
}

std::optional<std::string> nameFault(const std::string& name, const std::string& path,
                                     bool mayBeNumbered, const std::vector<SharePointNames>& all,
                                     SmbService& smb) {
  const std::string subject = "the name over SMB, \"" + printable(name) + "\", ";
  if (isReservedShareName(name)) return subject + "is one that Samba keeps for itself";
  if (const SharePointNames* other = otherWithName(all, path, name)) {
    if (mayBeNumbered) return std::nullopt;
    return subject + "is taken by " + printable(other->path);
  }
  if (auto fault = smb.handMadeSectionFault(name, path)) return subject + "is taken: " + *fault;
  return std::nullopt;
}

NFSExportClient clientOf(const Dictionary& settings) {
  NFSExportClient client;
  if (const std::string* host = settings.string("host")) client.host = *host;
  if (const Array* options = settings.array("options")) {
    for (const Value& option : *options) {
      if (option.string() != nullptr) client.options.push_back(*option.string());
    }
  }
  return client;
}

}  // namespace

Array refusalsOf(const Dictionary& request, const std::vector<SharePointNames>& all,
                 SmbService& smb) {
  Array refusals;
  const auto refuse = [&refusals](const char* key, const std::string& reason, const char* advice) {
    refusals.emplace_back(Dictionary{{"key", key}, {"reason", reason}, {"advice", advice}});
  };
  const std::string* path = request.string("path");
  const std::string* name = request.string(protocol::kNameOverSMB);
  if (name != nullptr && !name->empty()) {
    const bool mayBeNumbered = request.boolean("mayBeNumbered").value_or(false);
    const auto fault =
        nameFault(*name, path != nullptr ? *path : std::string(), mayBeNumbered, all, smb);
    if (fault)
      refuse(protocol::kNameOverSMB, *fault, "Choose another one with --smb-name, or --no-smb.");
  }
  if (const Array* clients = request.array("clients")) {
    HostResolver hosts;
    for (std::size_t at = 0; at < std::min(clients->size(), kMostClients); ++at) {
      const Dictionary* settings = (*clients)[at].dictionary();
      if (settings == nullptr) continue;
      if (const auto fault = exportClientFault(clientOf(*settings), hosts))
        refuse("clients", *fault, "exports(5) has the options and the forms of hosts.");
    }
  }
  return refusals;
}

}  // namespace paddock
