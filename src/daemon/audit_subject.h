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

// Of a request as it came: what has another type than it should is left out.
AuditSubject subjectOf(std::string_view plugin, const Dictionary& request);

// Requests that only ask how a run goes on, again and again, count as one for as long as the answer
// tells the same state. Any thread.
class RepeatedRequests {
 public:
  // Whether the user was answered the same by the last request of this operation for the same run.
  // False for every operation that does something each time.
  bool isRepeat(unsigned user, std::string_view operation, const Dictionary& request,
                const Dictionary& reply);

 private:
  static constexpr std::size_t kMostRuns = 1000;

  std::mutex mutex_;
  std::map<std::string, std::string> states_;
};

}  // namespace paddock
