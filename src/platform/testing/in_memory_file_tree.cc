#include "platform/testing/in_memory_file_tree.h"

#include <cerrno>
#include <stdexcept>

namespace paddock {

void InMemoryFileTree::set(const std::string& path, const FileAttributes& attributes) {
  remove(path);
  objects_[path].attributes = attributes;
}

void InMemoryFileTree::setFolder(const std::string& path) {
  set(path, {"root", "root", 0755, "directory"});
}

void InMemoryFileTree::setLink(const std::string& path, const std::string& target) {
  remove(path);
  links_[path] = target;
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

int InMemoryFileTree::resolve(const std::string& path, Object*& object) {
  constexpr int kMostLinks = 40;
  object = nullptr;
  std::string current = path;
  for (int followed = 0; followed <= kMostLinks; ++followed) {
    const auto link = links_.find(current);
    if (link == links_.end()) {
      const auto found = objects_.find(current);
      if (found == objects_.end()) return ENOENT;
      object = &found->second;
      return 0;
    }
    current = link->second;
  }
  return ELOOP;
}

}  // namespace paddock
