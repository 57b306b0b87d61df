// The plug-in paddock_denials: denials of groups, which the kernel's ACLs cannot represent,
// enforced at every door.
//
// Operations. "path" is an absolute path. "status" is 0, an errno or a status of the sharing
// module; "message" says why it is not 0.
//
//   getDenied      {"path"} -> "denials": an array with, for each entry that denies a group and is
//                  passed by: "number" (the entry's, from 1), "gid", "group", "people" (an array of
//                  names, the first 1000, by name), "count" (of all), "owner" (a name; there when
//                  the one who owns the object is in the group, and let in by the mode). "strict":
//                  whether the list is kept strict.
//   setStrict      {"path", "strict"}: from now on the list has a named denial for each of
//                  those, or no longer. -> what getDenied has afterwards, "written": how many named
//                  denials the list has for groups' now. With "strict" false the list stays as it
//                  is.
//   refreshStrict  {}: brings every strict list up to date with the members of its groups, as is
//                  done once a day. -> "lists": an array of {"path", "changed"}, with "status" and
//                  "message" for one that failed.
//
// Which lists are strict, and for whom a denial was written, is kept in the plug-in's context, by
// the path: "strict": {PATH: {GID: [UID, ...]}}. A list that denies no group any more is forgotten.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "paddock/plugin_request_handler.h"
#include "paddock_denials/group_denials.h"
#include "platform/accounts.h"
#include "platform/membership.h"
#include "platform/plugin_commands.h"

namespace paddock {

struct DenialServices {
  PluginCommands* siblings = nullptr;
  Membership* membership = nullptr;
  Accounts* accounts = nullptr;
  std::function<int(const std::string& path, KernelSide& kernel)> readKernelSide;
  MembersOf membersOf;
};

class DenialsRequestHandler final : public PluginRequestHandler {
 public:
  // Idle ticks at which strict lists are brought up to date: the first, and how many later again.
  static constexpr std::uint64_t kFirstRefresh = 600;
  static constexpr std::uint64_t kRefreshEach = 86400;

  // With the services of this host, as its configuration sets them.
  DenialsRequestHandler();
  // With other services, which must outlive this object.
  explicit DenialsRequestHandler(DenialServices services);
  ~DenialsRequestHandler() override;

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;
  std::int64_t doIdleAtCount(std::uint64_t count) override;

 private:
  struct OwnServices;

  Dictionary getDenied(const std::string& path);
  Dictionary setStrict(const std::string& path, bool strict) PADDOCK_REQUIRES(changing_);
  Dictionary refreshStrict() PADDOCK_REQUIRES(changing_);
  // Whether the list was changed.
  bool refresh(const std::string& path, int triesLeft = 3) PADDOCK_REQUIRES(changing_);
  Dictionary remembered();
  void remember(Dictionary strict) PADDOCK_REQUIRES(changing_);
  std::string groupName(std::uint32_t gid);

  std::unique_ptr<OwnServices> own_;  // null with others
  DenialServices services_;
  // Held by operations that change lists or the stored state of them.
  Mutex changing_;
};

}  // namespace paddock
