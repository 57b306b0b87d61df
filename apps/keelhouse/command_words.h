// The words of `keelhouse command`: KEY = VALUE [KEY = VALUE ...].
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace paddock::keelhouse {

struct PluginCommand {
  std::string shortName;  // "vsp" for the plug-in "paddock_vsp"
  std::string operation;
  Dictionary arguments;
};

// Reads the words. A KEY is SHORTNAME:KEYPATH, the parts of KEYPATH joined by ":"; "=" is a word of
// its own, or KEY=VALUE is one word. "SHORTNAME:command" names the operation and is no argument.
// Keys of one level that are the numbers 0 to n-1 make an array. Throws Failure (usage) for words
// that are none of this, for more than one SHORTNAME, and for keys that are repeated or lie inside
// one another.
PluginCommand parseCommandWords(const std::vector<std::string>& words);

// A VALUE: a JSON number, string, boolean or null when it reads as one, else the text itself.
Value parseCommandValue(std::string_view text);

}  // namespace paddock::keelhouse
