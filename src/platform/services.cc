#include "platform/services.h"

#include <stdexcept>

namespace paddock {

namespace {
const Services* gServices = nullptr;
}  // namespace

const Services& services() {
  if (gServices == nullptr) throw std::logic_error("no platform services are installed");
  return *gServices;
}

ServicesGuard::ServicesGuard(const Services& replacement)
    : installed_(replacement), previous_(gServices) {
  gServices = &installed_;
}

ServicesGuard::~ServicesGuard() { gServices = previous_; }

}  // namespace paddock
