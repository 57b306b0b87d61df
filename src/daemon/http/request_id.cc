#include "daemon/http/request_id.h"

#include <array>
#include <cstdio>
#include <random>

namespace paddock {

RequestIds::RequestIds() {
  std::random_device random;
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%08x", random());
  prefix_ = text.data();
}

std::string RequestIds::next() {
  return prefix_ + "-" + std::to_string(counter_.fetch_add(1, std::memory_order_relaxed) + 1);
}

}  // namespace paddock
