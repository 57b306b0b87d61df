#include "daemon/http/request_names.h"

#include <array>
#include <charconv>
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

namespace {

constexpr std::string_view kPrefix = "/v1/";
constexpr std::string_view kLogSuffix = "/log";

std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t index = 0; index < text.size(); ++index) {
    unsigned byte = 0;
    if (text[index] == '%' && index + 2 < text.size()) {
      const char* first = text.data() + index + 1;
      if (std::from_chars(first, first + 2, byte, 16).ptr == first + 2) {
        result.push_back(static_cast<char>(byte));
        index += 2;
        continue;
      }
    }
    result.push_back(text[index]);
  }
  return result;
}

}  // namespace

Route routeOf(std::string_view target) {
  target = target.substr(0, target.find('?'));
  if (target.substr(0, kPrefix.size()) != kPrefix) return {};
  target.remove_prefix(kPrefix.size());
  const std::size_t slash = target.find('/');
  const std::string first = unescaped(target.substr(0, slash));
  if (slash == std::string_view::npos) {
    for (const Endpoint& endpoint : kEndpoints)
      if (endpoint.path.substr(kPrefix.size()) == first) return {endpoint.kind, {}, {}, {}};
    return {};
  }
  target.remove_prefix(slash + 1);
  if (first == "requests") {
    if (!target.ends_with(kLogSuffix)) return {};
    target.remove_suffix(kLogSuffix.size());
    return {Route::Kind::requestLog, {}, {}, unescaped(target)};
  }
  return {Route::Kind::operation, first, unescaped(target), {}};
}

}  // namespace paddock
