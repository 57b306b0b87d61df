// The plug-in paddock_services: how the services of the host serve the share points.
//
// Operations. All read only; none takes the lock of the sharing plug-in, which may call them.
//
//   getServed   {"paths": [...]} (absent: every share point)
//     -> "status", "sharePoints": [{"path", "isShared", "folder", "protocols", "isServed",
//        "sentence"}]
//     "folder" is "there", "gone", "no folder" or "unknown"; "protocols" has "smb", "nfs", "vsp",
//     "ftp" and, of a backup destination, "dnssd", each {"state", "as", "reason", "advice"} (see
//     ProtocolState); "isServed" is true when every protocol that the share point is published
//     over serves it; "sentence" is all of it for people.
//     With "duringChange" true, no program is run in a tree of its own.
//
//   checkShare  {"path", "nameOverSMB", "mayBeNumbered", "clients": [{"host", "options"}]}
//     -> "status", "refusals": [{"key", "reason", "advice"}], see share_check.h; "unfinished": the
//        names of the records of share points that have no path, or a relative one
//
//   getExports  {"path"}
//     -> "status", "exports": [{"line", "clients"}]; the lines of the managed block of the exports
//        file for the path, as they stand there: more than one where another was added by hand
//
// "status" is an errno when the share points cannot be read; "error" is its text.
#pragma once

#include <string_view>
#include <vector>

#include "paddock/plugin_request_handler.h"
#include "paddock_services/protocol_state.h"
#include "platform/host/host_services.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/files/linux_text_files.h"
#include "platform/services.h"

namespace paddock {

class ServicesRequestHandler final : public PluginRequestHandler {
 public:
  // With the host's root and configuration.
  ServicesRequestHandler();

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

 private:
  Dictionary getServed(const Dictionary& request);
  Dictionary checkShare(const Dictionary& request);
  static Dictionary getExports(const Dictionary& request);

  HostLogger logger_;
  LinuxTextFiles textFiles_;
  LinuxDirectoryService directory_;
  ServicesGuard services_;
};

}  // namespace paddock
