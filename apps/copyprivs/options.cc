#include "copyprivs/options.h"

#include <charconv>

#include "privileges/acl_manipulation.h"

namespace paddock::copyprivs {

const char* const kUsage = "usage: copyprivs [-n] -p FOLDER -f MASK -s STATUSFILE";

namespace {

// Takes the words one after the other. The first fault is the one that is told.
class Reader {
 public:
  Reader(const std::vector<std::string>& words, Options& options)
      : words_(words), options_(options) {}

  std::string read() {
    while (next_ < words_.size()) readWord(words_[next_++]);
    if (options_.help || options_.version) return {};
    if (options_.folder.empty()) fail("no folder is given");
    if (mask_.empty()) {
      fail("no mask is given");
    } else {
      readMask();
    }
    if (options_.statusFile.empty()) fail("no status file is given");
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
    } else if (word == "--help") {
      options_.help = true;
    } else if (word == "--version") {
      options_.version = true;
    } else {
      fail("\"" + word + "\" is no option");
    }
  }
  void readArgument(const std::string& option, std::string& argument) {
    if (next_ == words_.size() || words_[next_].empty()) {
      fail(option + " needs an argument");
    } else if (!argument.empty()) {
      fail(option + " is given twice");
      ++next_;
    } else {
      argument = words_[next_++];
    }
  }
  void readMask() {
    const char* end = mask_.data() + mask_.size();
    std::uint32_t mask = 0;
    const auto [stopped, error] = std::from_chars(mask_.data(), end, mask);
    if (error != std::errc{} || stopped != end) {
      fail("the mask \"" + mask_ + "\" is no number");
    } else if ((mask & ~kSetEverything) != 0) {
      fail("the mask " + mask_ + " has unknown bits; it is a sum of 1, 2, 4, 8, 16 and 32");
    } else {
      options_.mask = mask;
    }
  }
  void fail(const std::string& text) {
    if (fault_.empty()) fault_ = text;
  }

  const std::vector<std::string>& words_;
  Options& options_;
  std::string mask_;
  std::string fault_;
  std::size_t next_ = 1;
};

}  // namespace

std::string readOptions(const std::vector<std::string>& words, Options& options) {
  options = {};
  return Reader(words, options).read();
}

}  // namespace paddock::copyprivs
