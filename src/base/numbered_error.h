// What an exception that knows its status is, besides an exception.
#pragma once

#include <optional>

#include "base/status.h"

namespace paddock {

class NumberedError {
 public:
  virtual ~NumberedError() = default;
  // The status that the error stands for, when it knows one.
  virtual std::optional<Status> number() const = 0;

 protected:
  NumberedError() = default;
  NumberedError(const NumberedError&) = default;
  NumberedError& operator=(const NumberedError&) = default;
};

}  // namespace paddock
