// File attributes in memory: the double of the Linux service.
#pragma once

#include "platform/accounts.h"
#include "platform/file_attributes.h"
#include "platform/testing/in_memory_file_tree.h"

namespace paddock {

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

}  // namespace paddock
