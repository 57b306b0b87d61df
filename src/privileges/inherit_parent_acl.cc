#include "privileges/inherit_parent_acl.h"

#include <algorithm>
#include <utility>

#include "platform/acl.h"
#include "privileges/ace_dictionary.h"
#include "privileges/get_acl.h"

namespace paddock {

namespace {

// Without its last component: "/a" for "/a/b" and "/a/b/", "/" for "/a" and "/".
std::string parentOf(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  path.resize(slash);
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path.empty() ? "/" : path;
}

std::int64_t flagsOf(const Value& entry) {
  const Dictionary* dictionary = entry.dictionary();
  return dictionary != nullptr ? dictionary->integer(ace::kFlags).value_or(0) : 0;
}

bool has(const Value& entry, acl::Flag flag) { return (flagsOf(entry) & flag) != 0; }

}  // namespace

Status inherit_parent_ACL(const std::string& path, Array& entries) {
  if (const Status status = get_acl(path, entries); status != kSuccess) return status;
  std::erase_if(entries, [](const Value& entry) { return has(entry, acl::kInherited); });
  Array parents;
  if (const Status status = get_acl(parentOf(path), parents); status != kSuccess) return status;
  for (Value& entry : parents) {
    // Deliberate: also for a folder, what folders alone inherit is not taken over.
    if (!has(entry, acl::kFileInherit)) continue;
    entry.dictionary()->set(ace::kFlags, flagsOf(entry) | acl::kInherited);
    entries.push_back(std::move(entry));
  }
  return kSuccess;
}

}  // namespace paddock
