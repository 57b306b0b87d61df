// Switching a volume's quotas and querying their state, in the form of BSD's quotactl(2).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace paddock {

inline constexpr std::uint32_t kQuotaOnCommand = 0x0100;
inline constexpr std::uint32_t kQuotaOffCommand = 0x0200;
inline constexpr std::uint32_t kQuotaStateCommand = 0x0700;

// The command word of a command for users (type 0) or groups (1).
constexpr std::uint32_t quotaCommand(std::uint32_t command, std::uint32_t type) {
  return command << 8U | type;
}

// What goes with a command word. The query's: where the state goes, 1 for on. The switches': the
// quota file's path.
using QuotaArgument = std::variant<std::uint32_t*, std::string>;

class QuotaControl {
 public:
  virtual ~QuotaControl() = default;
  // Any path on a volume names it, its last component followed when it is a link. 0, or an errno
  // with the state 0 and nothing switched:
  //   ENOTSUP  the volume keeps no quotas of the type
  //   ENOENT   no such path; or the quota file that is to be switched on does not exist
  //   EACCES   that file is not a regular one
  //   EINVAL   a word other than the six, an argument of the wrong kind, a path of which
  //            `quotaPathError` says so
  // and what the volume itself reports (EPERM, EROFS, EIO). Switching to the state that there is
  // already is 0. `id` is not used. Thread-safe.
  virtual int quotactl(const std::string& path, std::uint32_t commandWord, std::uint32_t id,
                       const QuotaArgument& argument) = 0;
};

// A command word and its argument, taken apart; what implementations begin with.
struct QuotaRequest {
  std::uint32_t command = 0;
  std::uint32_t type = 0;                  // 0 or 1
  std::uint32_t* state = nullptr;          // the query's
  const std::string* quotaFile = nullptr;  // the switches'
};
// Absent for a word or an argument that is EINVAL. The state, when there is one, is set to 0.
// `argument` outlives the result.
std::optional<QuotaRequest> quotaRequest(std::uint32_t commandWord, const QuotaArgument& argument);
// Why this path names no volume whose quotas are switched: EINVAL when it is not absolute, holds a
// NUL or has a ".." component. 0 when it may.
int quotaPathError(const std::string& path);
// Why this file cannot be switched on: ENOENT, EACCES for what is not a regular file (a link at the
// end is not followed), EINVAL for a path with a NUL. 0 when it can.
int quotaFileError(const std::string& path);

}  // namespace paddock
