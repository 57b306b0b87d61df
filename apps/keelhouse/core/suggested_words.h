// Suggestions for misspelled words.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace paddock::keelhouse {

// The candidate that `word` is a slip of the keyboard away from: few letters more, less, swapped or
// others, their case not counting. Of several equally near ones the first. Absent when none is.
std::optional<std::string> nearestWord(std::string_view word,
                                       const std::vector<std::string>& candidates);

// ": did you mean WORD?", or nothing.
std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates,
                       const std::string& before = {});

// Words of commands that a message tells the user to type.

// The text as one word of a POSIX shell, in single quotes where it needs them.
std::string shellWord(std::string_view text);

}  // namespace paddock::keelhouse
