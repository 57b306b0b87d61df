// What a user may do.
#pragma once

#include <sys/types.h>

#include <string>

namespace paddock {

enum class Rights { nothing, viewing, everything };

class AccessPolicy {
 public:
  AccessPolicy(std::string adminGroup, std::string viewGroup);

  // Root, and the user that the daemon itself runs as, about whom nobody has to be asked.
  static bool isOwner(uid_t user);

  // Of an owner: everything. Of members of the administrators' group (primary group included):
  // everything; of the viewers' group: viewing. Asked of the system's users and groups at every
  // call, so that a change counts at once.
  Rights rightsOf(uid_t user) const;

  // Why the user is refused what takes these rights, and what gives them.
  std::string refusal(uid_t user, Rights needed) const;

 private:
  std::string adminGroup_;
  std::string viewGroup_;
};

}  // namespace paddock
