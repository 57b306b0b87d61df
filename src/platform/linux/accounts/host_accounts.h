// What the host has of users and groups without the accounts that are given to it here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "base/principal.h"

namespace paddock {

class HostAccounts {
 public:
  virtual ~HostAccounts() = default;
  // The id of the user or group of this name; names are compared byte by byte.
  virtual std::optional<std::uint32_t> idOf(PrincipalType type, const std::string& name) = 0;
  virtual bool has(const Principal& principal) = 0;
};

// The names and ids of lines in the format of passwd(5) or group(5), which both have them in their
// first and third field. Comments, compatibility entries ("+", "-") and lines without an id are
// none.
class AccountLinesIndex {
 public:
  void add(std::string_view lines);
  // The id of the first line of this name.
  std::optional<std::uint32_t> idOf(const std::string& name) const;
  bool has(std::uint32_t id) const { return ids_.contains(id); }

 private:
  std::unordered_map<std::string, std::uint32_t> byName_;
  std::unordered_set<std::uint32_t> ids_;
};

}  // namespace paddock
