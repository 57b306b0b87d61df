#include "base/name_list.h"

#include <algorithm>

namespace paddock {

void NameList::add(std::string_view name) {
  names_.push_back('\0');
  names_.append(name);
}

std::string NameList::take() {
  const std::size_t start = names_.rfind('\0');
  std::string name = names_.substr(start + 1);
  names_.resize(start);
  // Room of a list that waits for long is given back.
  if (start == 0) std::string().swap(names_);
  return name;
}

NameList NameList::cutHalf() {
  const std::size_t end = std::min(names_.find('\0', names_.size() / 2 + 1), names_.size());
  NameList cut;
  cut.names_ = names_.substr(0, end);
  names_.erase(0, end);
  return cut;
}

}  // namespace paddock
