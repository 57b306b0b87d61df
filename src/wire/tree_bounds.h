// Limits for parsing untrusted trees of JSON and property lists.
//
// A text of few bytes can make a tree of many: each value takes memory of its own. So values are
// counted as they are read, and what the tree will take is asked for before it is taken.
#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"

namespace paddock::wire {

struct TreeBounds {
  // How many values there may be: containers are values, keys are none.
  std::size_t values = std::numeric_limits<std::size_t>::max();
  // Asked before so many bytes more are taken; reading ends when it says no. What was granted
  // covers the tree, and what reading takes beside it, as an upper estimate. Empty: not asked.
  std::function<bool(std::size_t bytes)> take = {};
};

// Like the functions without bounds (json.h, property_list.h). Nothing, too, when there are more
// values ("line 1, column 7: more than 3 values") or memory is refused ("no memory").
std::optional<Value> parseJson(std::string_view text, std::string& error, const TreeBounds& bounds);
std::optional<Value> parsePropertyList(std::string_view text, std::string& error,
                                       const TreeBounds& bounds);

// Counts for the readers.
class TreeMeter {
 public:
  explicit TreeMeter(const TreeBounds& bounds) : bounds_(bounds) {}

  // Whether one value more may be there.
  bool countValue() { return ++values_ <= bounds_.values; }
  std::string tooMany() const { return "more than " + std::to_string(bounds_.values) + " values"; }
  // Whether so many bytes more may be taken.
  bool take(std::size_t bytes);

  static constexpr const char* kNoMemory = "no memory";

 private:
  const TreeBounds& bounds_;
  std::size_t values_ = 0;
  std::size_t granted_ = 0;  // and not used yet
};

}  // namespace paddock::wire
