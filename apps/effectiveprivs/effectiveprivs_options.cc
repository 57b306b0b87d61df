#include "effectiveprivs/effectiveprivs_options.h"

#include <limits>

#include "base/text.h"

namespace paddock::effectiveprivs {

const char* const kUsage =
    "usage: effectiveprivs [--answer | --explain [--json]] -p PATH -u UID\n"
    "       effectiveprivs --who [--json] -p PATH";

namespace {

class Reader {
 public:
  explicit Reader(frame::OptionWords words) : words_(words) {}

  bool read(Options& options) {
    while (const std::string* word = words_.next()) {
      if (!readWord(*word, options)) return false;
    }
    if (options.isAny()) return true;
    if (!path_) return words_.fail("no path is given");
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
    return words_.readAsked(word, options);
  }
  bool checkWho(const Options& options) {
    if (uid_) return words_.fail("--who is about everybody, and takes no -u");
    return (!options.explain && !options.answer) || words_.fail("--who explains by itself");
  }
  bool checkUser(Options& options) {
    if (!uid_) return words_.fail("no uid is given");
    if (options.answer && options.explain) return words_.fail("--explain begins with the answer");
    if (options.json && !options.explain) return words_.fail("--json is for --explain and --who");
    options.uid = *uid_;
    return true;
  }
  bool readPath() {
    if (path_) return words_.fail("more than one path is given");
    const std::string* path = words_.nextArgument();
    if (path == nullptr) return words_.fail("-p needs a path");
    path_ = *path;
    return true;
  }
  bool readUid() {
    if (uid_) return words_.fail("more than one uid is given");
    const std::string* text = words_.next();
    if (text == nullptr) return words_.fail("-u needs a uid");
    const auto number = parseInteger(*text);
    const bool isPlain = !text->empty() && text->front() >= '0' && text->front() <= '9';
    if (!number || !isPlain || *number > std::numeric_limits<std::uint32_t>::max())
      return words_.fail("\"" + *text + "\" is no uid");
    uid_ = static_cast<std::uint32_t>(*number);
    return true;
  }

  frame::OptionWords words_;
  std::optional<std::string> path_;
  std::optional<std::uint32_t> uid_;
};

}  // namespace

std::optional<Options> readOptions(const std::vector<std::string>& words, std::string& fault) {
  Options options;
  if (!Reader({words, fault}).read(options)) return std::nullopt;
  return options;
}

}  // namespace paddock::effectiveprivs
