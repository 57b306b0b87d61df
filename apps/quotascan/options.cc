#include "quotascan/options.h"

namespace paddock::quotascan {

const char* const kUsage = "usage: quotascan [--json] [--kernel] -u VOLUME";

namespace {

// Takes the words one after the other.
class Reader {
 public:
  Reader(const std::vector<std::string>& words, std::string& fault)
      : words_(words), fault_(fault) {}

  bool read(Options& options) {
    while (next_ < words_.size()) {
      if (!readWord(words_[next_++], options)) return false;
    }
    if (options.help || options.version || !options.volume.empty()) return true;
    return fail("no volume is given");
  }

 private:
  bool readWord(const std::string& word, Options& options) {
    if (word == "-u") return readVolume(options);
    if (word == "--json") return options.json = true;
    if (word == "--kernel") return options.kernelAlone = true;
    if (word == "--help") return options.help = true;
    if (word == "--version") return options.version = true;
    return fail("\"" + word + "\" is no option");
  }
  bool readVolume(Options& options) {
    if (!options.volume.empty()) return fail("more than one volume is given");
    if (next_ == words_.size() || words_[next_].empty()) return fail("-u needs a volume");
    options.volume = words_[next_++];
    return true;
  }
  bool fail(std::string text) {
    fault_ = std::move(text);
    return false;
  }

  const std::vector<std::string>& words_;
  std::string& fault_;
  std::size_t next_ = 1;
};

}  // namespace

std::optional<Options> readOptions(const std::vector<std::string>& words, std::string& fault) {
  Options options;
  if (words.size() == 2 && words.front() == "-u" && !words.back().empty()) {
    options.volume = words.back();
    options.byHand = false;
    return options;
  }
  if (!Reader(words, fault).read(options)) return std::nullopt;
  return options;
}

}  // namespace paddock::quotascan
