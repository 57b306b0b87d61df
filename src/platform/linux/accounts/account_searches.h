// Several searches for users and groups on a node that can ask them together.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"

namespace paddock {

struct AccountQuestion {
  std::string type;  // of users or groups
  std::string attribute;
  std::string value;
};

class AccountSearches {
 public:
  virtual ~AccountSearches() = default;
  // What `DirectoryNode::findRecordsOfTypes` answers to each, in their order. Throws
  // DirectoryError.
  virtual std::vector<Array> findEach(const std::vector<AccountQuestion>& questions) = 0;
};

}  // namespace paddock
