#include "copyprivs/short_path.h"

#include <algorithm>
#include <string_view>

#include "wire/xml_text.h"

namespace paddock::copyprivs {

namespace {

constexpr std::string_view kLeftOut = "...";
constexpr std::size_t kHalf = (kLongestPath - kLeftOut.size()) / 2;
// What a byte may take at most: as "&amp;", and as "\xNN".
constexpr std::size_t kOfMarkup = 5;
constexpr std::size_t kOfOthers = 4;

std::size_t sizeOf(const std::string& path) {
  std::string text;
  wire::appendXmlText(text, path);
  return text.size();
}

std::size_t mostOf(char character) {
  const auto byte = static_cast<unsigned char>(character);
  if (character == '&' || character == '<' || character == '>' || character == '\r') {
    return kOfMarkup;
  }
  return byte < 0x20 || byte >= 0x7F ? kOfOthers : 1;
}

// How many bytes from the begin of the range fit into a half.
template <typename Iterator>
std::ptrdiff_t fitting(Iterator begin, Iterator end) {
  std::size_t taken = 0;
  const auto first = std::find_if(
      begin, end, [&](char character) { return (taken += mostOf(character)) > kHalf; });
  return first - begin;
}

bool isInCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80; }

}  // namespace

std::string shortPath(const std::string& path) {
  if (path.size() * kOfMarkup <= kLongestPath || sizeOf(path) <= kLongestPath) return path;
  auto front = path.begin() + fitting(path.begin(), path.end());
  auto back = path.end() - fitting(path.rbegin(), path.rend());
  // No character is cut in two.
  while (front != path.begin() && isInCharacter(*front)) --front;
  while (back != path.end() && isInCharacter(*back)) ++back;
  return std::string(path.begin(), front).append(kLeftOut).append(back, path.end());
}

}  // namespace paddock::copyprivs
