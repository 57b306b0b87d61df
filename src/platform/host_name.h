// The host's name, as gethostname(2) gives it.
#pragma once

#include <string>

namespace paddock {

class HostName {
 public:
  virtual ~HostName() = default;
  // 0 and the name, or an errno and an empty name.
  virtual int gethostname(std::string& name) = 0;
};

}  // namespace paddock
