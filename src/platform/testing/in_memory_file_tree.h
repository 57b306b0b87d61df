// Files and folders in memory, as the doubles of file attributes and extended ACLs share them.
//
// A path is a name; folders above it need not be there. A link may stand above what a path names.
// One thread at a time.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/accounts.h"
#include "platform/acl_list.h"
#include "platform/file_attributes.h"
#include "platform/path_use.h"
#include "platform/testing/call_rules.h"

namespace paddock {

// An extended ACL as a file keeps it.
struct StoredAcl {
  std::vector<acl::Entry> entries;
  bool undecodable = false;
  bool complete = false;
};

class InMemoryFileTree {
 public:
  struct Object {
    FileAttributes attributes;
    std::optional<StoredAcl> acl;
  };

  // Sets up an object, replacing what was there.
  void set(const std::string& path, const FileAttributes& attributes);
  // A folder of root's, mode 0755.
  void setFolder(const std::string& path);
  void setLink(const std::string& path, const std::string& target,
               const std::string& owner = "root");
  void remove(const std::string& path);
  // Sets up an ACL, valid or not. Precondition: the path is there.
  void setAcl(const std::string& path, const StoredAcl& acl);
  // The ACL that is stored; links followed, null when there is none.
  const StoredAcl* acl(const std::string& path);
  // The attributes; links followed, empty when nothing is there.
  FileAttributes attributes(const std::string& path);

  // The object at the path, links followed as path_use.h says. 0, ENOENT, ELOOP, or EACCES for a
  // link that does not count, which `refused` is then, where one is given.
  int resolve(const std::string& path, PathUse use, Object*& object,
              std::optional<RefusedLink>* refused = nullptr);
  // For reading.
  int resolve(const std::string& path, Object*& object) {
    return resolve(path, PathUse::reading, object);
  }

 private:
  struct Link {
    std::string target;
    std::string owner;
  };
  // One resolution: its use, how many links were followed, and the one that does not count.
  struct Walk {
    PathUse use = PathUse::reading;
    int followed = 0;
    std::optional<RefusedLink> refused;
  };
  // The path without links; links that are followed are judged. 0, ELOOP or EACCES.
  int withoutLinks(const std::string& path, Walk& walk, std::string& plain);
  int followLink(const std::string& path, const Link& link, Walk& walk, std::string& plain);

  std::map<std::string, Object> objects_;
  std::map<std::string, Link> links_;
};

// File attributes in memory: the double of the Linux service.
class InMemoryFileAttributes final : public FileAttributeService {
 public:
  // The tree and the accounts, which say what names there are, outlive this object.
  InMemoryFileAttributes(InMemoryFileTree& tree, Accounts& accounts)
      : tree_(tree), accounts_(accounts) {}

  int read(const std::string& path, FileAttributes& attributes) override;
  int apply(const std::string& path, const FileAttributeChanges& changes) override;
  bool exists(const std::string& path) override;
  std::optional<RefusedLink> refusedLink(const std::string& path) override;

 private:
  bool namesExist(const FileAttributeChanges& changes);

  InMemoryFileTree& tree_;
  Accounts& accounts_;
};

// File attributes. A failure is the errno, nothing read or applied; `exists` says false,
// `refusedLink` nothing. Operations, with the path as subject: readAttributes, applyAttributes,
// fileExists; traces leave out `refusedLink`, which is asked for messages alone.
class ForwardingFileAttributes final : public Forwarder<FileAttributeService> {
 public:
  using Forwarder::Forwarder;
  int read(const std::string& path, FileAttributes& attributes) override {
    attributes = {};
    const int error = ask("fileAttributes.read", {"readAttributes", path, ""});
    return error != 0 ? error : wrapped().read(path, attributes);
  }
  int apply(const std::string& path, const FileAttributeChanges& changes) override {
    const int error = ask("fileAttributes.apply", {"applyAttributes", path, ""});
    return error != 0 ? error : wrapped().apply(path, changes);
  }
  bool exists(const std::string& path) override {
    return ask("fileAttributes.exists", {"fileExists", path, ""}) == 0 && wrapped().exists(path);
  }
  std::optional<RefusedLink> refusedLink(const std::string& path) override {
    return ask("fileAttributes.refusedLink") != 0 ? std::nullopt : wrapped().refusedLink(path);
  }
};

}  // namespace paddock
