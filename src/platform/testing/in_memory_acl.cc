#include "platform/testing/in_memory_acl.h"

#include <cerrno>
#include <stdexcept>

namespace paddock {

namespace {

int fail(int error) {
  errno = error;
  return -1;
}

// Present when the file is to have a list. One that was made afresh takes over the completeness of
// the one that it replaces; without entries only a complete list that was read is kept.
std::optional<StoredAcl> storedForm(const acl::List& list, const std::optional<StoredAcl>& old) {
  const bool keptEmpty = list.complete.value_or(false);
  if (list.entries.empty() && !keptEmpty) return std::nullopt;
  StoredAcl stored;
  stored.complete = list.complete.value_or(old && old->complete);
  for (const auto& entry : list.entries) stored.entries.push_back(*entry);
  return stored;
}

}  // namespace

acl::List* InMemoryAcl::acl_get_file(const std::string& path, int type) {
  InMemoryFileTree::Object* object = nullptr;
  int error = type == acl::kTypeExtended ? tree_.resolve(path, object) : EINVAL;
  if (error == 0 && !object->acl) error = ENOENT;
  if (error != 0) {
    errno = error;
    return nullptr;
  }
  acl::List* list = acl_init(0);
  list->undecodable = object->acl->undecodable;
  list->complete = object->acl->complete;
  for (const acl::Entry& entry : object->acl->entries)
    list->entries.push_back(std::make_unique<acl::Entry>(entry));
  return list;
}

int InMemoryAcl::acl_set_file(const std::string& path, int type, acl::List* list) {
  if (type != acl::kTypeExtended || acl_valid(list) != 0) return fail(EINVAL);
  InMemoryFileTree::Object* object = nullptr;
  const int error = tree_.resolve(path, PathUse::changing, object);
  if (error != 0) return fail(error);
  object->acl = storedForm(*list, object->acl);
  ++replacements_;
  return 0;
}

acl::List* InMemoryAcl::acl_init(int count) {
  return static_cast<acl::List*>(handOut(AclCalls::acl_init(count)));
}

Guid* InMemoryAcl::acl_get_qualifier(acl::Entry* entry) {
  return static_cast<Guid*>(handOut(AclCalls::acl_get_qualifier(entry)));
}

int InMemoryAcl::acl_free(acl::List* list) {
  takeBack(list);
  return AclCalls::acl_free(list);
}

int InMemoryAcl::acl_free(Guid* qualifier) {
  takeBack(qualifier);
  return AclCalls::acl_free(qualifier);
}

void* InMemoryAcl::handOut(void* object) {
  if (object != nullptr) handedOut_.insert(object);
  return object;
}

void InMemoryAcl::takeBack(void* object) {
  if (object != nullptr && handedOut_.erase(object) == 0)
    throw std::logic_error("released twice, or never handed out");
}

}  // namespace paddock
