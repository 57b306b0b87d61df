#include "quotascan/quotascan_options.h"

namespace paddock::quotascan {

const char* const kUsage = "usage: quotascan [--json] [--kernel] -u VOLUME";

namespace {

bool readVolume(frame::OptionWords& words, Options& options) {
  if (!options.volume.empty()) return words.fail("more than one volume is given");
  const std::string* volume = words.nextArgument();
  if (volume == nullptr) return words.fail("-u needs a volume");
  options.volume = *volume;
  return true;
}

bool readWord(const std::string& word, frame::OptionWords& words, Options& options) {
  if (word == "-u") return readVolume(words, options);
  if (word == "--json") return options.json = true;
  if (word == "--kernel") return options.kernelAlone = true;
  return words.readAsked(word, options);
}

bool readAll(frame::OptionWords words, Options& options) {
  while (const std::string* word = words.next())
    if (!readWord(*word, words, options)) return false;
  return options.isAny() || !options.volume.empty() || words.fail("no volume is given");
}

}  // namespace

std::optional<Options> readOptions(const std::vector<std::string>& words, std::string& fault) {
  Options options;
  if (words.size() == 2 && words.front() == "-u" && !words.back().empty()) {
    options.volume = words.back();
    options.byHand = false;
    return options;
  }
  if (!readAll({words, fault}, options)) return std::nullopt;
  return options;
}

}  // namespace paddock::quotascan
