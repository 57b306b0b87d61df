// What keeps a share point that was written from reaching its clients, without being an error.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"

namespace paddock::keelhouse {

std::vector<std::string> notesOn(const Dictionary& sharePoint);

// Notes on possibly unintended settings of a share point that was just written.

// `sharePoint` as it is shown, with its options over SMB; `privileges` those of its folder, empty
// when they are not known. One sentence for each: root of whole networks, guests that write, a
// folder that everybody may write to.
std::vector<std::string> warningsOn(const Dictionary& sharePoint, const Dictionary& privileges);

}  // namespace paddock::keelhouse
