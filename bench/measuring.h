// What the programs here share: numbers of their command lines, and times.
#pragma once

#include <charconv>
#include <chrono>
#include <iostream>
#include <string_view>

namespace bench {

// The number that the text begins with; 0 when there is none.
inline int numberOf(std::string_view text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// The nanoseconds that `step` takes.
template <typename Step>
long long timeOf(Step step) {
  const auto began = std::chrono::steady_clock::now();
  step();
  return std::chrono::nanoseconds(std::chrono::steady_clock::now() - began).count();
}

// Prints a line with both times. The order alternates from run to run, since the second one finds
// its data in the server's cache.
template <typename Ours, typename Theirs>
void printInTurn(int run, Ours ours, Theirs theirs) {
  const bool oursFirst = run % 2 == 0;
  const long long first = oursFirst ? timeOf(ours) : timeOf(theirs);
  const long long second = oursFirst ? timeOf(theirs) : timeOf(ours);
  std::cout << (oursFirst ? first : second) << ' ' << (oursFirst ? second : first) << '\n';
}

}  // namespace bench
