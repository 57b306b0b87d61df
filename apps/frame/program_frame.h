// What the command lines of the small programs have in common: the parsing of their words, help and
// version, error messages, and the exit status.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace paddock::frame {

// Unusable: the words cannot be used.
enum ExitStatus { done = 0, failed = 1, unusable = 2 };

// What a program is asked about itself.
struct Asked {
  bool help = false;
  bool version = false;
  bool isAny() const { return help || version; }
};

// The words of a command line, one after the other.
class OptionWords {
 public:
  // `words` is the whole argument vector; `fault` is empty; both must outlive this object.
  OptionWords(const std::vector<std::string>& words, std::string& fault)
      : words_(words), fault_(fault) {}

  // Null behind the last one.
  const std::string* next();
  // The argument of an option. Null, and nothing is taken, when none or an empty one follows.
  const std::string* nextArgument();
  // Records in `asked` what `word` requests; a fault when it is unknown.
  bool readAsked(const std::string& word, Asked& asked);
  // Records why the words are invalid; the first reason is kept. Returns false.
  bool fail(const std::string& text);

 private:
  const std::vector<std::string>& words_;
  std::string& fault_;
  std::size_t next_ = 1;
};

// One run of a program on these streams. Each method that returns an int returns the exit status.
class ProgramRun {
 public:
  ProgramRun(std::string name, std::string usage, std::ostream& out, std::ostream& error);

  // A line on standard error that begins with the program's name.
  void say(const std::string& text) const;
  // Prints why the words are invalid, and the usage.
  int refuse(const std::string& fault) const;
  int describe(const Asked& asked) const;
  // Writes `text` to standard output; returns `status` unless that fails.
  int print(const std::string& text, int status) const;
  // Returns the result of `work`; an exception is reported, and the run fails.
  int attempt(const std::function<int()>& work) const;

 private:
  const std::string name_;
  const std::string usage_;
  std::ostream& out_;
  std::ostream& error_;
};

}  // namespace paddock::frame
