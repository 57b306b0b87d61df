// Trees for tests: every kind of value, awkward strings and numbers, reproducible by seed.
#pragma once

#include <limits>
#include <random>
#include <string>

#include "base/value.h"

namespace paddock::wire {

class RandomTree {
 public:
  explicit RandomTree(unsigned seed) : random_(seed) {}

  Value value(unsigned levels = 4) {
    switch (below(levels == 0 ? 5 : 8)) {
      case 0:
        return below(2) == 1;
      case 1:
        return number();
      case 2:
      case 3:
        return text();
      case 4:
        return data();
      case 5:
        return array(levels - 1);
      default:
        return dictionary(levels - 1);
    }
  }

 private:
  unsigned below(unsigned limit) { return std::uniform_int_distribution(0U, limit - 1)(random_); }

  Value number() {
    switch (below(6)) {
      case 0:
        return std::numeric_limits<std::int64_t>::min();
      case 1:
        return std::numeric_limits<std::int64_t>::max();
      case 2:
        return std::numeric_limits<std::uint64_t>::max();
      case 3:
        return static_cast<int>(below(1000)) - 500;
      default:
        return Value::fromUnsigned(random_() * 0x100000001ULL);
    }
  }

  std::string text() {
    static constexpr std::string_view kPieces[] = {"a",
                                                   "path",
                                                   "/srv/\xC3\xA9",
                                                   "\"",
                                                   "\\",
                                                   "\n",
                                                   "\r",
                                                   "\r\n",
                                                   "\t",
                                                   " ",
                                                   "  ",
                                                   "<",
                                                   "&amp;",
                                                   "]]>",
                                                   "'",
                                                   "\x7F",
                                                   "$data",
                                                   "\xC2\x85",
                                                   "&#",
                                                   "\xE2\x80\xA8",
                                                   "\xF0\x9F\x90\x8E",
                                                   "\xEF\xBF\xBD",
                                                   "0",
                                                   "\xE6\xBC\xA2",
                                                   "="};
    std::string text;
    for (unsigned count = below(8); count > 0; --count) text += kPieces[below(std::size(kPieces))];
    return text;
  }

  Data data() {
    Data data;
    for (unsigned count = below(20); count > 0; --count) {
      data.bytes.push_back(static_cast<std::uint8_t>(below(256)));
    }
    return data;
  }

  Array array(unsigned levels) {
    Array array;
    for (unsigned count = below(6); count > 0; --count) array.push_back(value(levels));
    return array;
  }

  Dictionary dictionary(unsigned levels) {
    Dictionary dictionary;
    for (unsigned count = below(6); count > 0; --count) dictionary.set(text(), value(levels));
    // The one dictionary that JSON reads as something else.
    if (dictionary.size() == 1 && dictionary.string("$data") != nullptr) dictionary.set("x", 1);
    return dictionary;
  }

  std::mt19937 random_;
};

}  // namespace paddock::wire
