// A compact stack of file names.
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
  // Removes and returns the name added last. Precondition: not empty.
  std::string take();
  // Removes and returns about half of the names, those added first; all when there is one.
  NameList cutHalf();

 private:
  std::string names_;  // each preceded by a NUL
};

}  // namespace paddock
