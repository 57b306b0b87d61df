// The rights of users.
#pragma once

#include <sys/types.h>

#include <string>

namespace paddock {

enum class Rights { nothing, viewing, everything };

class AccessPolicy {
 public:
  AccessPolicy(std::string adminGroup, std::string viewGroup);

  // Root, and the user that the daemon itself runs as: no lookup is needed for them.
  static bool isOwner(uid_t user);

  // Owners: all rights. Members of the administrators' group (primary group included): all rights;
  // of the viewers' group: viewing. Looked up in the system's users and groups on every call, so
  // that a change takes effect at once.
  Rights rightsOf(uid_t user) const;

  // Why the user is refused a request that requires these rights, and what grants them.
  std::string refusal(uid_t user, Rights needed) const;

 private:
  std::string adminGroup_;
  std::string viewGroup_;
};

}  // namespace paddock
