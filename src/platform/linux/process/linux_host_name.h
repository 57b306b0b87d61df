// gethostname(2).
#pragma once

#include "platform/host_name.h"

namespace paddock {

class LinuxHostName : public HostName {
 public:
  int gethostname(std::string& name) override;
};

}  // namespace paddock
