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

namespace {
constexpr std::uint32_t kModeBits = 07777;
constexpr std::uint32_t kSpecialBits = 07000;

std::uint32_t newMode(const FileAttributes& attributes, std::uint32_t permissions) {
  const bool keeps = (permissions & kSpecialBits) == 0 && attributes.type == "directory";
  const std::uint32_t kept = keeps ? attributes.permissions.value_or(0) & kSpecialBits : 0;
  return (permissions & kModeBits) | kept;
}
}  // namespace

int InMemoryFileAttributes::read(const std::string& path, FileAttributes& attributes) {
  attributes = {};
  InMemoryFileTree::Object* object = nullptr;
  const int error = tree_.resolve(path, object);
  if (error == 0) attributes = object->attributes;
  return error;
}

int InMemoryFileAttributes::apply(const std::string& path, const FileAttributeChanges& changes) {
  InMemoryFileTree::Object* object = nullptr;
  if (!namesExist(changes)) return EINVAL;
  const int error = tree_.resolve(path, PathUse::changing, object);
  if (error != 0) return error;
  FileAttributes& attributes = object->attributes;
  if (changes.ownerName) attributes.ownerName = changes.ownerName;
  if (changes.groupName) attributes.groupName = changes.groupName;
  if (changes.permissions) attributes.permissions = newMode(attributes, *changes.permissions);
  return 0;
}

bool InMemoryFileAttributes::exists(const std::string& path) {
  InMemoryFileTree::Object* object = nullptr;
  return tree_.resolve(path, object) == 0;
}

std::optional<RefusedLink> InMemoryFileAttributes::refusedLink(const std::string& path) {
  InMemoryFileTree::Object* object = nullptr;
  std::optional<RefusedLink> refused;
  (void)tree_.resolve(path, PathUse::changing, object, &refused);
  return refused;
}

bool InMemoryFileAttributes::namesExist(const FileAttributeChanges& changes) {
  std::uint32_t id = 0;
  return (!changes.ownerName || accounts_.getpwnam(*changes.ownerName, id) == 0) &&
         (!changes.groupName || accounts_.getgrnam(*changes.groupName, id) == 0);
}

}  // namespace paddock
