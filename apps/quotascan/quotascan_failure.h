// The failure of a run: the text says what failed, why, and what to do.
#pragma once

#include <stdexcept>
#include <string>
#include <system_error>

namespace paddock::quotascan {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "cannot OPERATION PATH: text of the errno", and the advice behind it when there is one.
inline Failure failureOf(const std::string& operation, const std::string& path, int error,
                         const std::string& advice = {}) {
  const std::string text =
      "cannot " + operation + " " + path + ": " + std::generic_category().message(error);
  return Failure(advice.empty() ? text : text + "; " + advice);
}

}  // namespace paddock::quotascan
