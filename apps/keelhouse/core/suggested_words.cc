#include "keelhouse/core/suggested_words.h"

#include <algorithm>

#include "base/text.h"

namespace paddock::keelhouse {

namespace {

constexpr std::size_t kLongestWord = 128;  // bytes; longer words have no close misspellings

using Row = std::vector<std::size_t>;

// Letters to insert, remove, replace, or swap with their neighbours.
std::size_t distanceOf(std::string_view left, std::string_view right) {
  Row beforeLast(right.size() + 1);
  Row last(right.size() + 1);
  Row row(right.size() + 1);
  for (std::size_t at = 0; at <= right.size(); ++at) last[at] = at;
  for (std::size_t i = 1; i <= left.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t differs = left[i - 1] == right[j - 1] ? 0 : 1;
      row[j] = std::min({row[j - 1] + 1, last[j] + 1, last[j - 1] + differs});
      const bool swapped =
          i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1];
      if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
    std::swap(beforeLast, last);
    std::swap(last, row);
  }
  return last[right.size()];
}

// One slip in a short word, more in a long one; nothing of a word is left when all is replaced.
std::size_t mostSlips(std::string_view word) {
  constexpr std::size_t kLettersPerSlip = 3;
  return std::max<std::size_t>(1, word.size() / kLettersPerSlip);
}

}  // namespace

std::optional<std::string> nearestWord(std::string_view word,
                                       const std::vector<std::string>& candidates) {
  if (word.empty() || word.size() > kLongestWord) return std::nullopt;
  const std::string typed = asciiLower(word);
  std::optional<std::string> nearest;
  std::size_t least = mostSlips(word) + 1;
  for (const std::string& candidate : candidates) {
    if (candidate.size() > kLongestWord) continue;
    const std::size_t distance = distanceOf(typed, asciiLower(candidate));
    if (distance >= least || distance >= candidate.size()) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest;
}

std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates,
                       const std::string& before) {
  const auto nearest = nearestWord(word, candidates);
  return nearest ? ": did you mean " + before + *nearest + "?" : std::string();
}

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
