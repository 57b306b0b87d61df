// What a changing request is about, for its audit line.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

// How many paths a line names; the others of a longer list are left out.
inline constexpr std::size_t kMostAuditedPaths = 1000;

// Of a request as it came: what has another type than it should is left out, and what is longer
// than a path can be is cut.
AuditSubject subjectOf(std::string_view plugin, const Dictionary& request);

// Whether a request that reads brings credentials, with which it would try a password.
bool carriesCredentials(const Dictionary& request);
// Of such a request: the user whose password is tried, and the node.
AuditSubject subjectOfAttempt(const Dictionary& request);
// The names of the users whose passwords a request may try, as they stand in it. An empty password
// is nobody's, and none is tried.
std::vector<std::string> namesTried(const Dictionary& request);
// Whether the name is among those that may be told: "dsCredentials" are secret as a whole.
bool mayBeTold(const Dictionary& request, const std::string& name);

// Requests that only ask how something goes on, again and again, count as one for as long as the
// answer tells the same state. Which operations these are their plug-ins say (paddock/plugin.h).
// Any thread.
class RepeatedRequests {
 public:
  // Whose request of which operation; "PLUGIN/OPERATION".
  struct Asked {
    unsigned user = 0;
    std::string operation;
    const Dictionary& request;
  };
  // `once` is "auditedOnce" of the operation's description: false without it, and otherwise whether
  // the user was answered the same by the last request for the same.
  bool isRepeat(const Asked& asked, const Dictionary* once, const Dictionary& reply);

 private:
  static constexpr std::size_t kMostKept = 1000;

  std::mutex mutex_;
  std::map<std::string, std::string> states_;
};

}  // namespace paddock
