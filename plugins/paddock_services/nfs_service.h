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

// Why exportfs would reject the client, as the end of a sentence; absent when it would not, and
// when that cannot be determined. Resolves what is a host's name or address.
std::optional<std::string> exportClientFault(const NFSExportClient& client, HostResolver& hosts);

// A snapshot of the NFS server. Each program is queried when its answer is first needed, and not
// again.
class NfsService {
 public:
  // `world` must outlive this object. The exports file is read through the installed services.
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
  // The faults that prevent the server as a whole from serving.
  std::vector<ProtocolState> serverFaults(const std::string& path);
  bool isRunning();
  bool answersMounts() const;
  const Listed* listedFor(const std::string& path, const std::string& host);
  ProtocolState whyNotTaken(const NFSExportClient& client);
  ProtocolState stateOfManaged(const std::string& path,
                               const std::vector<NFSExportClient>& clients);
  // According to the server's table.
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
