// How a command ends that cannot do what it was asked.
#pragma once

#include <stdexcept>
#include <string>

namespace paddock::keelhouse {

enum class ExitStatus {
  done = 0,
  failed = 1,       // the operation reported an error, or what was asked is not there
  usage = 2,        // the command line cannot be used
  unreachable = 3,  // no daemon answers on the socket
};

// Ends the program with `status`, the text on standard error.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& text) : std::runtime_error(text), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

inline Failure usageFailure(const std::string& text) { return {ExitStatus::usage, text}; }
inline Failure failure(const std::string& text) { return {ExitStatus::failed, text}; }

}  // namespace paddock::keelhouse
