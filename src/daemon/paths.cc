#include "daemon/paths.h"

#include <filesystem>

namespace paddock {

std::string rootFromArgument(const std::string& argument) {
  std::string root = std::filesystem::absolute(argument).lexically_normal().string();
  while (!root.empty() && root.back() == '/') root.pop_back();
  return root;
}

}  // namespace paddock
