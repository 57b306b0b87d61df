#include "exports/exports_tokens.h"

#include <algorithm>

namespace paddock {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::size_t kEscapeLength = 4;

// How many characters stand before the first quote, backslash or white space.
std::size_t plainLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && text[length] != '"' && text[length] != '\\' &&
         !isExportsSpace(text[length])) {
    ++length;
  }
  return length;
}

bool isOctal(char character, char highest) { return character >= '0' && character <= highest; }

}  // namespace

bool isExportsSpace(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

bool appendExportsCharacter(char character, std::size_t limit, std::string& word) {
  // The escape's own characters take up room until it is complete.
  if (word.size() > limit) return false;
  word += character;
  if (word.size() < kEscapeLength) return true;
  const char* tail = word.data() + word.size() - kEscapeLength;
  if (tail[0] != '\\' || !isOctal(tail[1], '3') || !isOctal(tail[2], '7') ||
      !isOctal(tail[3], '7')) {
    return true;
  }
  const int code = (tail[1] - '0') * 64 + (tail[2] - '0') * 8 + (tail[3] - '0');
  word.resize(word.size() - kEscapeLength);
  word += static_cast<char>(code);
  return true;
}

ExportsTokens::Next ExportsTokens::next(std::size_t limit, std::string& word) {
  word.clear();
  rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
  if (rest_.empty() || rest_.front() == '#' || rest_ == "\r") return Next::end;
  // Most words hold neither quotes nor escapes, and are what stands there.
  std::size_t at = plainLength(rest_);
  const bool plain = at == rest_.size() || isExportsSpace(rest_[at]);
  if (plain) {
    word = rest_.substr(0, at);
    rest_.remove_prefix(std::min(at + 1, rest_.size()));
    return word.empty() || word.size() > limit ? Next::fault : Next::word;
  }
  bool quoted = false;
  at = 0;
  for (; at < rest_.size() && (quoted || !isExportsSpace(rest_[at])); ++at) {
    if (rest_[at] == '"') {
      quoted = !quoted;
    } else if (!appendExportsCharacter(rest_[at], limit, word)) {
      return Next::fault;
    }
  }
  // The white space that ends a word is read with it.
  rest_.remove_prefix(std::min(at + 1, rest_.size()));
  return quoted || word.empty() || word.size() > limit ? Next::fault : Next::word;
}

}  // namespace paddock
