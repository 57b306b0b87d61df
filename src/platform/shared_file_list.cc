#include "platform/shared_file_list.h"

#include <string_view>

namespace paddock {

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";
constexpr std::string_view kUnescapedPunctuation = "-._~/";

bool staysInUrl(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') ||
         kUnescapedPunctuation.find(character) != std::string_view::npos;
}

}  // namespace

std::optional<std::string> fileUrl(const std::string& path) {
  if (path.empty() || path.front() != '/' || path.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  std::string url = "file://";
  for (const char character : path) {
    if (staysInUrl(character)) {
      url += character;
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    url += '%';
    url += kHexDigits[byte >> 4U];
    url += kHexDigits[byte & 0x0FU];
  }
  return url;
}

}  // namespace paddock
