// What the NFS server makes of a share point: the table that exportfs(8) lists, and the server in
// the kernel.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "exports/nfs_export_parser.h"
#include "paddock_services/host_addresses.h"
#include "paddock_services/protocol_state.h"

namespace paddock {

// Why exportfs would not take the client, as the end of a sentence; absent when it would, and when
// that cannot be known. Resolves what is a host's name or address.
std::optional<std::string> exportClientFault(const NFSExportClient& client, HostResolver& hosts);

// One look at the NFS server. Programs are asked when an answer is needed first, and not again.
class NfsService {
 public:
  // `world` outlives it. The exports file is read through the installed services.
  explicit NfsService(const AskedWorld& world);

  // Of the folder at `path`, which is there.
  ProtocolState stateOf(const std::string& path);
  // Whether the exports file has a managed line for it.
  bool isExported(const std::string& path);

 private:
  struct Listed {
    std::string host;
    std::vector<std::string> options;
  };

  NFSExportParser& exportsFile();
  const std::optional<ProtocolState>& whyNotListed();
  void askExportfs();
  // What keeps the server as a whole from serving.
  std::vector<ProtocolState> serverFaults(const std::string& path);
  bool isRunning();
  bool answersMounts() const;
  const Listed* listedFor(const std::string& path, const std::string& host);
  ProtocolState whyNotTaken(const NFSExportClient& client);
  ProtocolState stateOfManaged(const std::string& path,
                               const std::vector<NFSExportClient>& clients);
  // As the server's table has it.
  ProtocolState stateOfUnmanaged(const std::string& path);
  ProtocolState stateWithoutFile(const std::string& path);

  const AskedWorld& world_;
  HostResolver hosts_;
  std::unique_ptr<NFSExportParser> exportsFile_;
  bool asked_ = false;
  std::optional<ProtocolState> whyNotListed_;
  std::multimap<std::string, Listed> listed_;  // by path
};

}  // namespace paddock
