#include "platform/testing/in_memory_file_attributes.h"

#include <cerrno>

namespace paddock {

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
