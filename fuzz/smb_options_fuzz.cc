#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "samba/smb_options.h"

namespace {

using paddock::samba::attributesOf;
using paddock::samba::faultOfOptions;
using paddock::samba::optionsDictionary;
using paddock::samba::optionsFromDictionary;
using paddock::samba::parseParameter;
using paddock::samba::ReadOptions;
using paddock::samba::readOptions;
using paddock::samba::sectionLines;
using paddock::samba::SmbOptions;

void require(bool holds) {
  if (!holds) std::abort();
}

// Parts with a byte 1 between: the comment, one host, and parameters.
SmbOptions optionsIn(std::string_view text) {
  SmbOptions options;
  for (std::size_t number = 0; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\x01'), text.size());
    const std::string part(text.substr(0, end));
    if (number == 0) {
      options.comment = part;
    } else if (number == 1) {
      options.allowHosts = {part};
    } else {
      options.parameters.push_back(parseParameter(part));
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return options;
}

// Each line is one parameter: no section begins, and nothing goes on in the next line.
void checkLines(std::string_view lines) {
  while (!lines.empty()) {
    const std::size_t end = lines.find('\n');
    require(end != std::string_view::npos);
    const std::string_view line = lines.substr(0, end);
    require(line.starts_with("    ") && line.size() > 4);
    require(std::string_view("[#; \t").find(line[4]) == std::string_view::npos);
    require(line.find(" = ") != std::string_view::npos && !line.ends_with('\\'));
    require(line.find('\0') == std::string_view::npos);
    lines.remove_prefix(end + 1);
  }
}

void checkForms(const SmbOptions& options) {
  require(optionsFromDictionary(optionsDictionary(options)).options == options);
  const ReadOptions read = readOptions(attributesOf(options).attributes);
  require(read.fault.empty() && read.options == options);
}

}  // namespace

// Options that are not refused come back from their forms, and are lines of one section.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const SmbOptions options = optionsIn(text);
  if (!faultOfOptions(options).empty()) return 0;
  checkLines(sectionLines(options));
  checkForms(options);
  return 0;
}
