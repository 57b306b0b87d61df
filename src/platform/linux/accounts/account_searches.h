// Batched searches for users and groups, on nodes that support them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"
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

// Values of users and groups in the answers of a directory node.

// The first value of an attribute of an answer; null when there is none. Points into the answer.
const std::string* firstValue(const Value& answer, const char* attribute);

// The first value as a uid or gid, or as a GUID; nothing when it is none.
std::optional<std::uint32_t> firstId(const Value& answer, const char* attribute);
std::optional<Guid> firstGuid(const Value& answer, const char* attribute);

}  // namespace paddock
