#include "effectiveprivs/options.h"

#include <limits>
#include <utility>

#include "base/text.h"

namespace paddock::effectiveprivs {

const char* const kUsage =
    "usage: effectiveprivs [--answer | --explain [--json]] -p PATH -u UID\n"
    "       effectiveprivs --who [--json] -p PATH";

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
    if (options.help || options.version) return true;
    if (!path_) return fail("no path is given");
    options.path = *path_;
    return options.who ? checkWho(options) : checkUser(options);
  }

 private:
  bool readWord(const std::string& word, Options& options) {
    if (word == "-p") return readPath();
    if (word == "-u") return readUid();
    if (word == "--answer") return options.answer = true;
    if (word == "--explain") return options.explain = true;
    if (word == "--who") return options.who = true;
    if (word == "--json") return options.json = true;
    if (word == "--help") return options.help = true;
    if (word == "--version") return options.version = true;
    return fail("\"" + word + "\" is no option");
  }
  bool checkWho(const Options& options) {
    if (uid_) return fail("--who is about everybody, and takes no -u");
    return (!options.explain && !options.answer) || fail("--who explains by itself");
  }
  bool checkUser(Options& options) {
    if (!uid_) return fail("no uid is given");
    if (options.answer && options.explain) return fail("--explain begins with the answer");
    if (options.json && !options.explain) return fail("--json is for --explain and --who");
    options.uid = *uid_;
    return true;
  }
  bool readPath() {
    if (path_) return fail("more than one path is given");
    if (next_ == words_.size() || words_[next_].empty()) return fail("-p needs a path");
    path_ = words_[next_++];
    return true;
  }
  bool readUid() {
    if (uid_) return fail("more than one uid is given");
    if (next_ == words_.size()) return fail("-u needs a uid");
    const std::string& text = words_[next_++];
    const auto number = parseInteger(text);
    const bool isPlain = !text.empty() && text[0] >= '0' && text[0] <= '9';
    if (!number || !isPlain || *number > std::numeric_limits<std::uint32_t>::max())
      return fail("\"" + text + "\" is no uid");
    uid_ = static_cast<std::uint32_t>(*number);
    return true;
  }
  bool fail(std::string text) {
    fault_ = std::move(text);
    return false;
  }

  const std::vector<std::string>& words_;
  std::string& fault_;
  std::optional<std::string> path_;
  std::optional<std::uint32_t> uid_;
  std::size_t next_ = 1;
};

}  // namespace

std::optional<Options> readOptions(const std::vector<std::string>& words, std::string& fault) {
  Options options;
  if (!Reader(words, fault).read(options)) return std::nullopt;
  return options;
}

}  // namespace paddock::effectiveprivs
