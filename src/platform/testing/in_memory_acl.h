// Extended ACLs of an InMemoryFileTree: the double of the Linux service.
//
// Counts allocations: a test detects leaks, and an invalid release is a std::logic_error.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "platform/acl_list.h"
#include "platform/privileged_object.h"
#include "platform/testing/call_rules.h"
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

// Objects of an InMemoryFileTree whose privileges are changed; owners are kept by number.
class InMemoryPrivilegedObjects : public PrivilegedObjects {
 public:
  struct Owners {
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    friend bool operator==(const Owners&, const Owners&) = default;
  };

  // Tree and ACLs outlive this object.
  InMemoryPrivilegedObjects(InMemoryFileTree& tree, InMemoryAcl& acl) : tree_(tree), acl_(acl) {}

  int open(const std::string& path, PathUse use,
           std::unique_ptr<PrivilegedObject>& object) override {
    object = nullptr;
    InMemoryFileTree::Object* found = nullptr;
    const int error = tree_.resolve(path, use, found);
    if (error == 0) object = std::make_unique<Object>(*this, path);
    return error;
  }

  Owners& owners(const std::string& path) { return owners_[path]; }

 private:
  class Object : public PrivilegedObject {
   public:
    Object(InMemoryPrivilegedObjects& all, std::string path) : all_(all), path_(std::move(path)) {}

    acl::List* getAcl() override { return all_.acl_.acl_get_file(path_, acl::kTypeExtended); }
    int setAcl(acl::List* list) override {
      return all_.acl_.acl_set_file(path_, acl::kTypeExtended, list);
    }
    int changeOwner(std::uint32_t uid, std::uint32_t gid) override {
      Owners& owners = all_.owners_[path_];
      if (uid != kUnchanged) owners.uid = uid;
      if (gid != kUnchanged) owners.gid = gid;
      return 0;
    }
    int readMode(mode_t& mode) override {
      InMemoryFileTree::Object* found = nullptr;
      const int error = all_.tree_.resolve(path_, found);
      mode = error == 0 ? found->attributes.permissions.value_or(0) | typeOf(*found) : 0;
      return error;
    }
    int changeMode(mode_t mode) override {
      InMemoryFileTree::Object* found = nullptr;
      const int error = all_.tree_.resolve(path_, found);
      if (error == 0) found->attributes.permissions = mode & 07777U;
      return error;
    }

   private:
    static mode_t typeOf(const InMemoryFileTree::Object& object) {
      if (object.attributes.type == "directory") return S_IFDIR;
      return object.attributes.type == "fifo" ? S_IFIFO : S_IFREG;
    }

    InMemoryPrivilegedObjects& all_;
    std::string path_;
  };

  InMemoryFileTree& tree_;
  InMemoryAcl& acl_;
  std::map<std::string, Owners> owners_;
};

// Objects whose privileges are changed. A failure is the errno and no object; what is done with an
// object is not asked, and traces leave all of it out.
class ForwardingPrivilegedObjects final : public Forwarder<PrivilegedObjects> {
 public:
  using Forwarder::Forwarder;
  int open(const std::string& path, PathUse use,
           std::unique_ptr<PrivilegedObject>& object) override {
    object = nullptr;
    const int error = ask("privilegedObjects.open");
    return error != 0 ? error : wrapped().open(path, use, object);
  }
};

}  // namespace paddock
