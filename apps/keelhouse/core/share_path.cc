#include "keelhouse/core/share_path.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/suggested_words.h"

namespace paddock::keelhouse {

namespace {

void appendParts(std::vector<std::string_view>& parts, std::string_view path) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view part = path.substr(0, end);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    path.remove_prefix(std::min(end + 1, path.size()));
  }
}

}  // namespace

std::string normalisePath(std::string_view path, std::string_view currentFolder) {
  if (path.empty()) throw usageFailure("the path is empty");
  std::vector<std::string_view> parts;
  if (path.front() != '/') appendParts(parts, currentFolder);
  appendParts(parts, path);
  std::string result;
  for (const std::string_view part : parts) {
    result += '/';
    result += part;
  }
  if (!isValidUtf8(result)) {
    throw usageFailure(result + " is not UTF-8, and such a path cannot be shared");
  }
  return result.empty() ? "/" : result;
}

std::string absolutePath(std::string_view path) {
  if (path.starts_with('/')) return normalisePath(path, "/");
  std::error_code error;
  const std::string current = std::filesystem::current_path(error).string();
  if (error || !current.starts_with('/')) {
    throw usageFailure("the current folder has no path; give an absolute one");
  }
  return normalisePath(path, current);
}

std::string lastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

namespace {

// A sibling of the path with a similar name, on a line of its own, or nothing.
std::string nearestBeside(const std::string& path) {
  constexpr std::size_t kMostNames = 1000;
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  std::vector<std::string> names;
  std::error_code ignored;
  for (std::filesystem::directory_iterator entry(folder, ignored), end;
       entry != end && !ignored && names.size() < kMostNames; entry.increment(ignored)) {
    names.push_back(entry->path().filename());
  }
  const auto name = nearestWord(lastComponent(path), names);
  return name ? "\nDid you mean " + printable(folder + *name) + "?" : std::string();
}

}  // namespace

Failure explainMissing(const Failure& failed, const std::string& path) {
  struct stat attributes {};
  if (::lstat(path.c_str(), &attributes) == 0 || errno != ENOENT) return failed;
  return failed.withMore("There is nothing at " + path + "." + nearestBeside(path)).withGuess({});
}

void requireFolder(const std::string& path) {
  struct stat attributes {};
  if (::stat(path.c_str(), &attributes) != 0) {
    const int error = errno;
    throw failure(path + " cannot be shared: " + std::generic_category().message(error) +
                  (error == ENOENT ? nearestBeside(path) : std::string()) +
                  "\nCreate the folder first; share add takes --force as well.");
  }
  if (!S_ISDIR(attributes.st_mode)) {
    throw failure(
        path +
        " is not a folder\nShare the folder that holds it; share add takes --force as well.");
  }
}

}  // namespace paddock::keelhouse
