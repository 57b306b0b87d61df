// The plug-in paddock_quotas: usage and limits as the kernel keeps them.
//
// Operations. "path" is any path on the volume. "status" is 0 or an errno, ENOTSUP where the kernel
// keeps no quotas or where the configuration has usage counted alone ([volumes] quota_backend);
// "message" says why a status is not 0.
//
//   getUsage   {"path"} -> "users", "groups": an array of entries of those that use something
//              or have a limit, root left out; absent for a type that the kernel does not keep.
//              "usersEnforced", "groupsEnforced": whether limits hold. "time": the clock's, for the
//              ends of grace.
//   setLimits  {"path", "name", "group", "softBytes", "hardBytes", "softFiles", "hardFiles"}:
//              of the user "name", of the group with "group" true; a number that is no name is
//              an id. A pair of which neither is there stays; of one that is there the other is 0,
//              none.
//              -> "entry", read again from the kernel. ENOENT for an unknown name, EINVAL for
//              root's limits, which would apply to no user (and on XFS to all).
//   setEnabled {"path", "isEnabled"}: writeSettings of paddock_sharing; where that cannot switch
//              quotas on, the files that it made for them are removed again. -> "status" and, where
//              it is not 0, "error", both of the switch; "volumeQuotas" of its reply; "removed":
//              the names of the files.
//
// An entry: "id", "name" (the id in decimal where it has no name), "usedBytes", "softBytes",
// "hardBytes", "usedFiles", "softFiles", "hardFiles" (a limit of 0 is none), "bytesGraceEnd",
// "filesGraceEnd" (seconds since 1970; 0 when no grace runs).
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "base/value.h"
#include "paddock/plugin_request_handler.h"
#include "paddock_quotas/quota_operations.h"
#include "platform/plugin_commands.h"

namespace paddock {

// Switching a volume's quotas so that a refusal leaves nothing behind.

// The reply of setEnabled (quotas_handler.h). The sharing module makes a marker and a quota file
// before it asks the kernel, and keeps them when that refuses; those of them that were not there
// before, and are regular files of this process' user, are removed, by the descriptor of the folder
// that was opened first.
Dictionary switchQuotas(PluginCommands& commands, const Dictionary& request);

class QuotasRequestHandler final : public PluginRequestHandler {
 public:
  // With the services of this host, as its configuration sets them.
  QuotasRequestHandler();
  // With other services, which must outlive this object.
  QuotasRequestHandler(const QuotaServices& services, PluginCommands& commands);
  ~QuotasRequestHandler() override;

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

 private:
  struct OwnServices;

  std::unique_ptr<OwnServices> own_;  // null with others
  QuotaServices services_;
  PluginCommands* commands_;
  // Held by operations that change something, so that each reads back its own result.
  Mutex changing_;
};

}  // namespace paddock
