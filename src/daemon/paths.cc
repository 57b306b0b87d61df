#include "daemon/paths.h"

#include <filesystem>
#include <system_error>

namespace paddock {

std::string rootFromArgument(const std::string& argument) {
  std::string root = std::filesystem::absolute(argument).lexically_normal().string();
  while (!root.empty() && root.back() == '/') root.pop_back();
  return root;
}

std::string rootFromExecutable(const std::string& executable) {
  const std::filesystem::path folder = std::filesystem::path(executable).parent_path();
  const std::filesystem::path above = folder.parent_path();
  if (folder.filename() != "sbin" || above.filename() != "usr") return {};
  const std::string root = above.parent_path().string();
  return root == "/" ? std::string() : root;
}

std::string rootOfThisProgram() {
  std::error_code failed;
  const auto executable = std::filesystem::read_symlink("/proc/self/exe", failed);
  return failed ? std::string() : rootFromExecutable(executable.string());
}

}  // namespace paddock
