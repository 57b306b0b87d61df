// The only place that retries on EINTR, and the only one that converts errno to an exception.
#pragma once

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

namespace paddock {

// Retries `function` while it returns -1 with EINTR.
template <typename Function>
auto retryOnInterrupt(Function function) -> decltype(function()) {
  for (;;) {
    const auto result = function();
    if (result != -1 || errno != EINTR) return result;
  }
}

// The same, returning an errno: 0 when the call's result is not negative; `result` is then set to
// it.
template <typename Call, typename Result>
int errnoOf(Call call, Result* result) {
  const auto returned = retryOnInterrupt(call);
  if (returned < 0) return errno;
  *result = static_cast<Result>(returned);
  return 0;
}
template <typename Call>
int errnoOf(Call call) {
  return retryOnInterrupt(call) < 0 ? errno : 0;
}

// An error whose text is "OPERATION PATH: text of errno".
inline std::system_error systemError(int number, std::string_view operation,
                                     std::string_view path) {
  std::string what(operation);
  if (!path.empty()) what.append(" ").append(path);
  return {number, std::generic_category(), what};
}

}  // namespace paddock
