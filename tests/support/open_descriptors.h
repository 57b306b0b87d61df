// The open descriptors of this process, to detect descriptors that a call leaks.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace paddock {

inline std::set<int> openDescriptors() {
  std::set<int> numbers;
  DIR* folder = ::opendir("/proc/self/fd");
  if (folder == nullptr) return numbers;
  while (const dirent* entry = ::readdir(folder)) {
    const int number = std::atoi(entry->d_name);
    if (entry->d_name[0] != '.' && number != ::dirfd(folder)) numbers.insert(number);
  }
  ::closedir(folder);
  return numbers;
}

// Descriptors opened since its construction that are still open; closed by the destructor.
class LeftOpen {
 public:
  LeftOpen() : before_(openDescriptors()) {}
  LeftOpen(const LeftOpen&) = delete;
  LeftOpen& operator=(const LeftOpen&) = delete;
  ~LeftOpen() {
    for (const int number : numbers()) ::close(number);
  }

  std::vector<int> numbers() const {
    std::vector<int> left;
    const std::set<int> now = openDescriptors();
    std::set_difference(now.begin(), now.end(), before_.begin(), before_.end(),
                        std::back_inserter(left));
    return left;
  }
  // The paths of the files that they are, those that an exec keeps marked with "!".
  std::vector<std::string> paths() const {
    std::vector<std::string> paths;
    for (const int number : numbers()) {
      std::string path(4096, '\0');
      const std::string link = "/proc/self/fd/" + std::to_string(number);
      const ssize_t length = ::readlink(link.c_str(), path.data(), path.size());
      path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
      const bool kept = (::fcntl(number, F_GETFD) & FD_CLOEXEC) == 0;
      paths.push_back((kept ? "!" : "") + path);
    }
    return paths;
  }

 private:
  std::set<int> before_;
};

}  // namespace paddock
