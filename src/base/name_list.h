// Names of files that wait for their turn, many in little room.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace paddock {

class NameList {
 public:
  bool empty() const { return names_.empty(); }
  std::size_t bytes() const { return names_.size(); }
  bool isOne() const { return names_.rfind('\0') == 0; }

  // The name is not empty and has no NUL.
  void add(std::string_view name);
  // The name that was added last. Precondition: there is one.
  std::string take();
  // Cuts off about the half of the names that were added first; all when there is one.
  NameList cutHalf();

 private:
  std::string names_;  // each behind a NUL
};

}  // namespace paddock
