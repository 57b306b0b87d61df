#include "base/printable.h"

#include "base/text.h"

namespace paddock {

namespace {

bool isControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first < 0x20 || first == 0x7F;
  return character.size() == 2 && first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

// U+2028 to U+202E and U+2066 to U+2069: line and paragraph separators, and what reorders the text
// behind it. (Letters that are written from right to left are none of these.)
bool reordersText(std::string_view character) {
  if (character.size() != 3) return false;
  const std::string_view block = character.substr(0, 2);
  const auto last = static_cast<unsigned char>(character[2]);
  return (block == "\xE2\x80" && last >= 0xA8 && last <= 0xAE) ||
         (block == "\xE2\x81" && last >= 0xA6 && last <= 0xA9);
}

void appendHexadecimal(std::string& out, std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  for (const char byte : bytes) {
    out += "\\x";
    out += kDigits[static_cast<unsigned char>(byte) >> 4U];
    out += kDigits[static_cast<unsigned char>(byte) & 15U];
  }
}

std::string escape(std::string_view text, bool keepLineFeeds) {
  std::string out;
  while (!text.empty()) {
    const std::size_t size = utf8CharacterSize(text);
    const std::string_view character = text.substr(0, size == 0 ? 1 : size);
    const bool kept = keepLineFeeds && character == "\n";
    if (!kept && (size == 0 || isControl(character) || reordersText(character))) {
      appendHexadecimal(out, character);
    } else {
      out += character;
    }
    text.remove_prefix(character.size());
  }
  return out;
}

}  // namespace

std::string printable(std::string_view text) { return escape(text, false); }
std::string printableLines(std::string_view text) { return escape(text, true); }

}  // namespace paddock
