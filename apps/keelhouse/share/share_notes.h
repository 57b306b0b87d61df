// What keeps a share point that was written from reaching its clients, without being an error.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"

namespace paddock::keelhouse {

std::vector<std::string> notesOn(const Dictionary& sharePoint);

}  // namespace paddock::keelhouse
