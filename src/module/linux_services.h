// The composition root: the Linux implementation of every platform service, installed.
#pragma once

#include <memory>

namespace paddock {

class InstalledServices {
 public:
  // Creates the services from the host's root and configuration, and installs them. Throws when one
  // cannot be created.
  InstalledServices();
  InstalledServices(const InstalledServices&) = delete;
  InstalledServices& operator=(const InstalledServices&) = delete;
  ~InstalledServices();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace paddock
