#include "frame/program_frame.h"

#include <exception>
#include <utility>

#include "base/text.h"

namespace paddock::frame {

const std::string* OptionWords::next() {
  return next_ < words_.size() ? &words_[next_++] : nullptr;
}

const std::string* OptionWords::nextArgument() {
  return next_ < words_.size() && !words_[next_].empty() ? next() : nullptr;
}

bool OptionWords::readAsked(const std::string& word, Asked& asked) {
  if (word == "--help") return asked.help = true;
  if (word == "--version") return asked.version = true;
  return fail("\"" + word + "\" is no option");
}

bool OptionWords::fail(const std::string& text) {
  if (fault_.empty()) fault_ = text;
  return false;
}

ProgramRun::ProgramRun(std::string name, std::string usage, std::ostream& out, std::ostream& error)
    : name_(std::move(name)), usage_(std::move(usage)), out_(out), error_(error) {}

void ProgramRun::say(const std::string& text) const {
  error_ << name_ << ": " << printable(text) << std::endl;
}

int ProgramRun::refuse(const std::string& fault) const {
  say(fault);
  error_ << usage_ << std::endl;
  return unusable;
}

int ProgramRun::describe(const Asked& asked) const {
  out_ << (asked.help ? usage_ : name_ + " " PADDOCK_VERSION) << std::endl;
  return done;
}

int ProgramRun::print(const std::string& text, int status) const {
  out_ << text << std::flush;
  if (out_) return status;
  say("standard output cannot be written");
  return failed;
}

int ProgramRun::attempt(const std::function<int()>& work) const {
  try {
    return work();
  } catch (const std::exception& exception) {
    say(exception.what());
    return failed;
  }
}

}  // namespace paddock::frame
