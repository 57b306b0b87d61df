// Full Unicode case folding.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

// The full case folding (CaseFolding.txt, statuses C and F) of UTF-8 text, with nothing
// normalised. Bytes that are not well-formed UTF-8 come back as they are.
std::string caseFold(std::string_view text);

// The version of Unicode that `caseFold` follows, "15.0.0".
std::string caseFoldVersion();

}  // namespace paddock
