// Extended ACLs of an InMemoryFileTree: the double of the Linux service.
//
// Counts what it hands out: a test sees what was never released, and releasing what is not out is
// a std::logic_error.
#pragma once

#include <set>
#include <string>

#include "platform/acl_list.h"
#include "platform/testing/in_memory_file_tree.h"

namespace paddock {

class InMemoryAcl final : public acl::AclCalls {
 public:
  // The tree outlives this object.
  explicit InMemoryAcl(InMemoryFileTree& tree) : tree_(tree) {}

  acl::List* acl_get_file(const std::string& path, int type) override;
  int acl_set_file(const std::string& path, int type, acl::List* list) override;
  acl::List* acl_init(int count) override;
  Guid* acl_get_qualifier(acl::Entry* entry) override;
  int acl_free(acl::List* list) override;
  int acl_free(Guid* qualifier) override;

  std::size_t unreleased() const { return handedOut_.size(); }
  // How often acl_set_file changed something.
  int replacements() const { return replacements_; }

 private:
  void* handOut(void* object);
  void takeBack(void* object);

  InMemoryFileTree& tree_;
  std::set<void*> handedOut_;
  int replacements_ = 0;
};

}  // namespace paddock
