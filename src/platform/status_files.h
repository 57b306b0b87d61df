// The status files of programs that run beside the module: created by it, written by the program,
// read and removed by it again. Paths are full ones, never resolved below a root. Thread-safe.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "base/value.h"

namespace paddock {

inline constexpr std::size_t kMaximumStatusFile = 1U << 20U;

class StatusFiles {
 public:
  virtual ~StatusFiles() = default;

  // mkstemp(3): makes a new empty file, mode 0600, whose name is `pathTemplate` with its last six
  // characters, "XXXXXX", replaced. The template is taken below the host's root; `path` is the full
  // one. 0 or an errno with `path` empty.
  virtual int create(const std::string& pathTemplate, std::string& path) = 0;

  // Whether the path exists, dangling symlinks included.
  virtual bool exists(const std::string& path) = 0;

  // The property-list dictionary in the file. Absent for everything else: a file that is not
  // regular, not this process's user's, has more than one name, more than kMaximumStatusFile bytes,
  // or holds something else; the last part of the path is never followed.
  virtual std::optional<Dictionary> read(const std::string& path) = 0;

  // Removes a file that `read` would read; anything else is left alone. 0 or an errno, EPERM for
  // what is left alone.
  virtual int remove(const std::string& path) = 0;

  // Undoes `create`: removes a file that `read` would accept if it had contents, and that is still
  // empty; anything else is left alone. 0 or an errno, as `remove`.
  virtual int discard(const std::string& path) = 0;
};

}  // namespace paddock
