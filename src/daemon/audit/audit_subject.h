// The subject of a changing request, for its audit line.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "base/value.h"

namespace paddock {

struct AuditSubject {
  std::optional<std::string> path;
  std::vector<std::string> paths;  // of a request that names several; then there is no `path`
  // Of a directory record, or of a user whose password is set.
  std::optional<std::string> node;
  std::optional<std::string> type;
  std::optional<std::string> name;
};

// Maximum number of paths in a line; the rest of a longer list is omitted.
inline constexpr std::size_t kMostAuditedPaths = 1000;

// From an unvalidated request: values of the wrong type are omitted, and values longer than a path
// can be are truncated.
AuditSubject subjectOf(std::string_view plugin, const Dictionary& request);

// Whether a reading request carries credentials, and so would try a password.
bool carriesCredentials(const Dictionary& request);
// For such a request: the user whose password is tried, and the node.
AuditSubject subjectOfAttempt(const Dictionary& request);
// The names of the users whose passwords a request may try, verbatim. An empty password matches no
// user, and is not tried.
std::vector<std::string> namesTried(const Dictionary& request);
// Whether the name may be disclosed: "dsCredentials" are secret as a whole.
bool mayBeTold(const Dictionary& request, const std::string& name);

// Polling requests count as one for as long as the reply reports the same state. Their plug-ins
// declare which operations these are (paddock/plugin.h). Thread-safe.
class RepeatedRequests {
 public:
  // The user and the operation, "PLUGIN/OPERATION".
  struct Asked {
    unsigned user = 0;
    std::string operation;
    const Dictionary& request;
  };
  // `once` is "auditedOnce" of the operation's description: false without it, and otherwise whether
  // the user's last identical request had the same answer.
  bool isRepeat(const Asked& asked, const Dictionary* once, const Dictionary& reply);

 private:
  static constexpr std::size_t kMostKept = 1000;

  Mutex mutex_;
  std::map<std::string, std::string> states_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
