// Volume quotas for people.
#pragma once

#include <string>

#include "base/value.h"

namespace paddock::keelhouse {

// Whether quotas are enforced on the volume, and a table of users and groups, those who use most
// first: name, used, free, limit.
std::string formatQuotas(const std::string& volume, const Dictionary& quotas);

}  // namespace paddock::keelhouse
