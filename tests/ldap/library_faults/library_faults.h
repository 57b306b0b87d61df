// Calls of libldap, and the system calls around them, that fail. For programs that are linked with
// --wrap for each of them (CMakeLists.txt); one thread.
#pragma once

#include <string>

namespace paddock {

class LibraryFaults {
 public:
  enum class Kind {
    noMemory,    // every call can fail: LDAP_NO_MEMORY, or an errno
    serverDown,  // those that talk to the server can: LDAP_SERVER_DOWN
  };

  // Call `number` (from 1, counted from now on) of those that can fail so does; with `forGood` all
  // from there on.
  static void failAt(int number, Kind kind, bool forGood);
  // None does.
  static void heal();
  // The call that failed, the first of them; empty: none has since `failAt`.
  static const std::string& failed();
};

}  // namespace paddock
