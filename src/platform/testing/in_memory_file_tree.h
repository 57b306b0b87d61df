// Files and folders in memory, as the doubles of file attributes and extended ACLs share them.
//
// A path is a name; folders above it need not be there. One thread at a time.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/acl_list.h"
#include "platform/file_attributes.h"

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
  void setLink(const std::string& path, const std::string& target);
  void remove(const std::string& path);
  // Sets up an ACL, valid or not. Precondition: the path is there.
  void setAcl(const std::string& path, const StoredAcl& acl);
  // The ACL that is stored; links followed, null when there is none.
  const StoredAcl* acl(const std::string& path);
  // The attributes; links followed, empty when nothing is there.
  FileAttributes attributes(const std::string& path);

  // The object at the path, links followed. 0, ENOENT or ELOOP.
  int resolve(const std::string& path, Object*& object);

 private:
  std::map<std::string, Object> objects_;
  std::map<std::string, std::string> links_;
};

}  // namespace paddock
