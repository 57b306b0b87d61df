#include "platform/testing/in_memory_file_tree.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace paddock {

void InMemoryFileTree::set(const std::string& path, const FileAttributes& attributes) {
  remove(path);
  objects_[path].attributes = attributes;
}

void InMemoryFileTree::setFolder(const std::string& path) {
  set(path, {"root", "root", 0755, "directory"});
}

void InMemoryFileTree::setLink(const std::string& path, const std::string& target,
                               const std::string& owner) {
  remove(path);
  links_[path] = {target, owner};
}

void InMemoryFileTree::remove(const std::string& path) {
  objects_.erase(path);
  links_.erase(path);
}

void InMemoryFileTree::setAcl(const std::string& path, const StoredAcl& acl) {
  Object* object = nullptr;
  if (resolve(path, object) != 0) throw std::logic_error("an ACL of nothing: " + path);
  object->acl = acl;
}

const StoredAcl* InMemoryFileTree::acl(const std::string& path) {
  Object* object = nullptr;
  return resolve(path, object) == 0 && object->acl ? &*object->acl : nullptr;
}

FileAttributes InMemoryFileTree::attributes(const std::string& path) {
  Object* object = nullptr;
  return resolve(path, object) == 0 ? object->attributes : FileAttributes();
}

int InMemoryFileTree::resolve(const std::string& path, PathUse use, Object*& object,
                              std::optional<RefusedLink>* refused) {
  object = nullptr;
  Walk walk{use, 0, {}};
  std::string plain;
  const int error = withoutLinks(path, walk, plain);
  if (refused != nullptr) *refused = std::move(walk.refused);
  if (error != 0) return error;
  const auto found = objects_.find(plain);
  if (found == objects_.end()) return ENOENT;
  object = &found->second;
  return 0;
}

int InMemoryFileTree::withoutLinks(const std::string& path, Walk& walk, std::string& plain) {
  plain = path;
  for (std::size_t end = 1; end != std::string::npos && end <= plain.size();) {
    end = plain.find('/', end);
    const std::string place = plain.substr(0, end);
    const std::string rest = end == std::string::npos ? "" : plain.substr(end);
    if (end != std::string::npos) ++end;
    const auto link = links_.find(place);
    if (link == links_.end()) continue;
    std::string target;
    if (const int error = followLink(place, link->second, walk, target); error != 0) return error;
    plain = target + rest;
    end = target.size() + 1;
  }
  return 0;
}

int InMemoryFileTree::followLink(const std::string& path, const Link& link, Walk& walk,
                                 std::string& plain) {
  constexpr int kMostLinks = 40;
  if (++walk.followed > kMostLinks) return ELOOP;
  if (const int error = withoutLinks(link.target, walk, plain); error != 0) return error;
  if (walk.use == PathUse::reading || link.owner == "root") return 0;
  const auto found = objects_.find(plain);
  // As on disk, where nothing is has no owner and is missing.
  if (found == objects_.end()) return ENOENT;
  if (found->second.attributes.ownerName == link.owner) return 0;
  walk.refused = {path, link.target, 0, link.owner, false};
  return EACCES;
}

}  // namespace paddock
