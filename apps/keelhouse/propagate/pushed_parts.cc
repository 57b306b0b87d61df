#include "keelhouse/propagate/pushed_parts.h"

namespace paddock::keelhouse {

std::string pushedWords(std::uint32_t mask) {
  std::string text;
  for (const PushedPart& part : kPushedParts) {
    if ((mask & part.bit) == 0) continue;
    text += (text.empty() ? "" : ", ") + std::string(part.word);
  }
  return text.empty() ? "nothing" : text;
}

}  // namespace paddock::keelhouse
