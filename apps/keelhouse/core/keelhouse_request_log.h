// What the daemon logged for the requests of this run, printed below their results.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Forwards the output, and keeps its first part: what was already reported to the user.
class NotesBuffer : public std::streambuf {
 public:
  explicit NotesBuffer(std::ostream& out) : out_(out) {}
  const std::string& text() const { return text_; }

 protected:
  int_type overflow(int_type character) override;
  std::streamsize xsputn(const char* bytes, std::streamsize count) override;
  int sync() override;

 private:
  std::ostream& out_;
  std::string text_;
};

// The lines of `log` that report a problem and add information: of level "error", and with
// `warnings` those of level "warning", too. Left out are a text that came before or stands in
// `said`; what a program said that did not fail, or where the line about what it was run for is
// there; whom a tree of its own, below `root`, does not have; and that the NFS server's exportfs is
// missing where nothing is exported, or the state of the share point says so.
std::vector<LogLine> newTroubles(const std::vector<LogLine>& log, const std::string& said,
                                 const std::string& root, bool warnings);

// Advice on the reasons in the lines; empty when they contain it themselves, or none is known.
std::string adviceOn(const std::vector<LogLine>& lines);

// Prints a failure on `error`: its first line, the troubles in the log of the request that it is
// about, and what to do; with JSON also as an object on standard output, with all lines of the log.
// `said`: the notes so far.
void printFailure(const Session& session, std::ostream& error, const Failure& failed,
                  const std::string& said);

// Below what a command printed that succeeded: a warning with the errors that the log has of its
// requests for changes, where there are some. Gives them for "log" of a JSON document.
Array warnOfErrors(const Session& session, const std::string& said);

// The document of a command, with `log` under "log" unless that is empty.
std::string withLog(const std::string& document, Array log);

}  // namespace paddock::keelhouse
