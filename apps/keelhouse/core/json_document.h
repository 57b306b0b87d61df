// Documents that a command takes back: JSON from a file or from standard input.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace paddock::keelhouse {

// The dictionary in the file, or for "-" on standard input; at most 16 MiB. Throws Failure (usage)
// that names the file for one that cannot be read or holds no dictionary, with the place.
Dictionary readDocument(const std::string& file);

// Throws Failure (usage) for a key that is not among `known`, with the one that was meant. `what`
// begins the message ("entry 2").
void requireKnownKeys(const Dictionary& dictionary, const std::vector<std::string>& known,
                      const std::string& what);

// The value of that type; null when it is absent. Throws Failure (usage) for another type.
const std::string* textIn(const Dictionary& dictionary, const char* key, const std::string& what);
const bool* booleanIn(const Dictionary& dictionary, const char* key, const std::string& what);
const Array* arrayIn(const Dictionary& dictionary, const char* key, const std::string& what);

// The texts of an array, and nothing else; empty when it is absent.
std::vector<std::string> textsIn(const Dictionary& dictionary, const char* key,
                                 const std::string& what);

}  // namespace paddock::keelhouse
