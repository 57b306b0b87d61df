#include "base/installed_root.h"

#include <unistd.h>

#include <array>
#include <climits>

namespace paddock {

std::string runningExecutable() {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  if (length <= 0) return {};
  std::string executable(path.data(), static_cast<std::size_t>(length));
  // The kernel's note that the file was replaced while the program runs.
  constexpr std::string_view kReplaced = " (deleted)";
  if (executable.ends_with(kReplaced)) executable.resize(executable.size() - kReplaced.size());
  return executable;
}

std::string rootOfInstalled(const std::string& executable, std::string_view place) {
  if (!executable.ends_with(place)) return {};
  return executable.substr(0, executable.size() - place.size());
}

}  // namespace paddock
