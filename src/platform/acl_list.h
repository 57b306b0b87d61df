// The list behind acl.h's calls, and every call that touches a list alone. An implementation of the
// service derives from AclCalls and adds acl_get_file and acl_set_file.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "platform/acl.h"

namespace paddock::acl {

inline constexpr std::size_t kMaximumEntries = 1000;

struct Permset {
  Permission permissions = 0;
};

struct Flagset {
  Flag flags = 0;
};

// Data that an implementation attaches to a list or entry that it read; opaque here.
class Origin {
 public:
  virtual ~Origin() = default;
};

class Entry {
 public:
  int tag = kUndefinedTag;
  std::optional<Guid> qualifier;
  Permset permset;
  Flagset flagset;
  // Shared with copies of the entry; null for one created here.
  std::shared_ptr<const Origin> origin;
};

class List {
 public:
  std::vector<std::unique_ptr<Entry>> entries;
  // Set when the stored value did not decode; such a list has no entries.
  bool undecodable = false;
  // A list that was read from a file keeps the completeness that it had there; one built afresh
  // has none of its own. In a complete list nothing falls back to the mode.
  std::optional<bool> complete;
  std::shared_ptr<const Origin> origin;
  // The index of the entry that acl_get_entry returns next.
  std::size_t next = 0;
};

class AclCalls : public AclService {
 public:
  List* acl_init(int count) override;
  int acl_create_entry(List* list, Entry*& entry) override;
  int acl_get_entry(List* list, int which, Entry*& entry) override;
  int acl_delete_entry(List* list, Entry* entry) override;
  int acl_get_tag_type(Entry* entry, int& tag) override;
  int acl_set_tag_type(Entry* entry, int tag) override;
  Guid* acl_get_qualifier(Entry* entry) override;
  int acl_set_qualifier(Entry* entry, const Guid& qualifier) override;
  int acl_get_permset(Entry* entry, Permset*& permset) override;
  int acl_set_permset(Entry* entry, Permset* permset) override;
  int acl_clear_perms(Permset* permset) override;
  int acl_add_perm(Permset* permset, Permission permission) override;
  int acl_get_perm_np(Permset* permset, Permission permission) override;
  int acl_get_flagset_np(Entry* entry, Flagset*& flagset) override;
  int acl_set_flagset_np(Entry* entry, Flagset* flagset) override;
  int acl_clear_flags_np(Flagset* flagset) override;
  int acl_add_flag_np(Flagset* flagset, Flag flag) override;
  int acl_get_flag_np(Flagset* flagset, Flag flag) override;
  int acl_valid(List* list) override;
  int acl_free(List* list) override;
  int acl_free(Guid* qualifier) override;
};

}  // namespace paddock::acl
