#include "keelhouse/core/shell_word.h"

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-:@%+,";

}  // namespace

std::string shellWord(std::string_view text) {
  if (!text.empty() && text.find_first_not_of(kPlain) == std::string_view::npos) {
    return std::string(text);
  }
  std::string word = "'";
  for (const char character : text) {
    word += character == '\'' ? "'\\''" : std::string(1, character);
  }
  return word + "'";
}

}  // namespace paddock::keelhouse
