#include "copyprivs/copyprivs_options.h"

#include <charconv>

#include "privileges/acl_manipulation.h"

namespace paddock::copyprivs {

const char* const kUsage = "usage: copyprivs [-n] [-l] -p FOLDER -f MASK -s STATUSFILE";

namespace {

class Reader {
 public:
  Reader(const std::vector<std::string>& words, Options& options)
      : words_(words, fault_), options_(options) {}

  std::string read() {
    while (const std::string* word = words_.next()) readWord(*word);
    if (options_.isAny()) return {};
    if (options_.folder.empty()) words_.fail("no folder is given");
    if (mask_.empty()) {
      words_.fail("no mask is given");
    } else {
      readMask();
    }
    if (options_.statusFile.empty()) words_.fail("no status file is given");
    return fault_;
  }

 private:
  void readWord(const std::string& word) {
    if (word == "-p") {
      readArgument(word, options_.folder);
    } else if (word == "-f") {
      readArgument(word, mask_);
    } else if (word == "-s") {
      readArgument(word, options_.statusFile);
    } else if (word == "-n") {
      options_.dryRun = true;
    } else if (word == "-l") {
      options_.leavesLinks = true;
    } else {
      words_.readAsked(word, options_);
    }
  }
  void readArgument(const std::string& option, std::string& argument) {
    const std::string* given = words_.nextArgument();
    if (given == nullptr) {
      words_.fail(option + " needs an argument");
    } else if (!argument.empty()) {
      words_.fail(option + " is given twice");
    } else {
      argument = *given;
    }
  }
  void readMask() {
    const char* end = mask_.data() + mask_.size();
    std::uint32_t mask = 0;
    const auto [stopped, error] = std::from_chars(mask_.data(), end, mask);
    if (error != std::errc{} || stopped != end) {
      words_.fail("the mask \"" + mask_ + "\" is no number");
    } else if ((mask & ~kSetEverything) != 0) {
      words_.fail("the mask " + mask_ + " has unknown bits; it is a sum of 1, 2, 4, 8, 16 and 32");
    } else {
      options_.mask = mask;
    }
  }

  std::string fault_;
  frame::OptionWords words_;
  Options& options_;
  std::string mask_;
};

}  // namespace

std::string readOptions(const std::vector<std::string>& words, Options& options) {
  options = {};
  return Reader(words, options).read();
}

}  // namespace paddock::copyprivs
