#include "platform/testing/in_memory_text_files.h"

#include <cerrno>

namespace paddock {

namespace {

constexpr int kLinkLimit = 40;
constexpr std::size_t kSizeLimit = std::size_t{64} << 20U;
constexpr mode_t kOwnerMayRead = 0400;

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

}  // namespace

InMemoryTextFiles::InMemoryTextFiles() {
  objects_["/"] = {Kind::folder, "", 0755};
  objects_["/etc"] = {Kind::folder, "", 0755};
}

bool InMemoryTextFiles::hasFolderOf(const std::string& path) const {
  const auto folder = objects_.find(folderOf(path));
  return folder != objects_.end() && folder->second.kind == Kind::folder;
}

int InMemoryTextFiles::resolve(std::string& path) const {
  for (int links = 0; links <= kLinkLimit; ++links) {
    if (!hasFolderOf(path)) return ENOENT;
    const auto object = objects_.find(path);
    if (object == objects_.end()) return ENOENT;
    if (object->second.kind != Kind::link) return 0;
    const std::string& target = object->second.contents;
    std::string from = target.front() == '/' ? "" : folderOf(path).append("/");
    path = from.append(target);
  }
  return ELOOP;
}

int InMemoryTextFiles::read(const std::string& path, std::string& contents) {
  contents.clear();
  std::string resolved = path;
  if (const int error = resolve(resolved); error != 0) return error;
  const Object& object = objects_.at(resolved);
  if (object.kind == Kind::folder) return EISDIR;
  if (object.kind != Kind::file) return EINVAL;
  if ((object.mode & kOwnerMayRead) == 0) return EACCES;
  if (object.contents.size() > kSizeLimit) return EFBIG;
  contents = object.contents;
  return 0;
}

int InMemoryTextFiles::replace(const std::string& path, const std::string& contents) {
  std::string resolved = path;
  const int error = resolve(resolved);
  if (error != 0 && error != ENOENT) return error;
  if (!hasFolderOf(resolved)) return ENOENT;
  const auto object = objects_.find(resolved);
  if (object == objects_.end()) {
    objects_[resolved] = {Kind::file, contents};
  } else if (object->second.kind == Kind::folder) {
    return EISDIR;
  } else if (object->second.kind != Kind::file) {
    return EINVAL;
  } else {
    object->second.contents = contents;
  }
  ++replacements_;
  return 0;
}

int InMemoryTextFiles::copyOnce(const std::string& from, const std::string& to) {
  if (objects_.contains(to)) return EEXIST;
  std::string contents;
  if (const int error = read(from, contents); error != 0) return error;
  if (!hasFolderOf(to)) return ENOENT;
  std::string resolved = from;
  resolve(resolved);
  objects_[to] = objects_.at(resolved);
  return 0;
}

int InMemoryTextFiles::removeFile(const std::string& folder, const std::string& name) {
  const bool isName = !name.empty() && name != "." && name != ".." &&
                      name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
  if (!isName || folder.find('\0') != std::string::npos) return EINVAL;
  if (folder.empty()) return ENOENT;
  const std::size_t end = folder.find_last_not_of('/');
  std::string resolved = end == std::string::npos ? "/" : folder.substr(0, end + 1);
  if (const int error = resolve(resolved); error != 0) return error;
  if (objects_.at(resolved).kind != Kind::folder) return ENOTDIR;
  const auto found = objects_.find((resolved == "/" ? "" : resolved) + "/" + name);
  if (found == objects_.end()) return ENOENT;
  if (found->second.kind == Kind::folder) return EISDIR;
  objects_.erase(found);
  return 0;
}

bool InMemoryTextFiles::exists(const std::string& path) {
  std::string resolved = path;
  return resolve(resolved) == 0;
}

void InMemoryTextFiles::set(const std::string& path, const Object& object) {
  for (std::string folder = folderOf(path); folder != "/"; folder = folderOf(folder)) {
    objects_.try_emplace(folder, Object{Kind::folder, "", 0755});
  }
  objects_[path] = object;
}

void InMemoryTextFiles::setFile(const std::string& path, const std::string& contents) {
  set(path, {Kind::file, contents});
}

void InMemoryTextFiles::remove(const std::string& path) { objects_.erase(path); }

const InMemoryTextFiles::Object* InMemoryTextFiles::find(const std::string& path) const {
  const auto object = objects_.find(path);
  return object == objects_.end() ? nullptr : &object->second;
}

std::size_t InMemoryTextFiles::countBelow(const std::string& folder) const {
  std::size_t count = 0;
  for (const auto& [path, object] : objects_) {
    if (path.compare(0, folder.size() + 1, folder + "/") == 0) ++count;
  }
  return count;
}

std::string InMemoryTextFiles::contents(const std::string& path) const {
  std::string resolved = path;
  if (resolve(resolved) != 0) return {};
  return objects_.at(resolved).contents;
}

}  // namespace paddock
