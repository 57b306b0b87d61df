// The failure of a command.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace paddock::keelhouse {

enum class ExitStatus {
  done = 0,
  failed = 1,       // the operation reported an error, or what was asked is not there
  usage = 2,        // the command line cannot be used
  unreachable = 3,  // no daemon answers on the socket
  unsure = 4,       // incomplete answer: an unresolved entry, or a node that did not respond
  notServed = 5,    // done, but not served, where that was required
};

// Whether it is the daemon's answer to the last request that reports the failure.
enum class ReportedBy { keelhouse, daemon };

// Ends the program with `status`, the text on standard error. Below the first line of a failure
// that the daemon reported stand the errors and warnings that its log has of the last request.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& text, ReportedBy origin = ReportedBy::keelhouse)
      : std::runtime_error(text), status_(status), origin_(origin) {}
  ExitStatus status() const { return status_; }
  ReportedBy origin() const { return origin_; }

  // What may be done about it, as far as the failure alone says; it gives way to what the log of
  // the request says of the reason.
  const std::string& guess() const { return guess_; }
  Failure withGuess(const std::string& guess) && {
    guess_ = guess;
    return std::move(*this);
  }
  // The same failure with another text.
  Failure withText(const std::string& text) const {
    return Failure(status_, text, origin_).withGuess(guess_);
  }
  // The same failure with more text below.
  Failure withMore(const std::string& text) const {
    return withText(std::string(what()) + "\n" + text);
  }

 private:
  ExitStatus status_;
  ReportedBy origin_;
  std::string guess_;
};

// The daemon answered with an HTTP status other than 200.
class Refusal : public Failure {
 public:
  Refusal(long httpStatus, const std::string& text)
      : Failure(ExitStatus::failed, text, ReportedBy::daemon), httpStatus_(httpStatus) {}
  long httpStatus() const { return httpStatus_; }

 private:
  long httpStatus_;
};

inline Failure usageFailure(const std::string& text) { return {ExitStatus::usage, text}; }
inline Failure failure(const std::string& text) { return {ExitStatus::failed, text}; }
inline Failure daemonFailure(const std::string& text) {
  return {ExitStatus::failed, text, ReportedBy::daemon};
}

}  // namespace paddock::keelhouse
