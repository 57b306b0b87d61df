// The failure of a run that cannot answer the request: the text says what, and why.
#pragma once

#include <stdexcept>
#include <string>
#include <system_error>

namespace paddock::effectiveprivs {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "cannot OPERATION PATH: text of the errno".
inline Failure failureOf(const std::string& operation, const std::string& path, int error) {
  return Failure("cannot " + operation + " " + path + ": " +
                 std::generic_category().message(error));
}

}  // namespace paddock::effectiveprivs
