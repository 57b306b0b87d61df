#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "keelhouse/access/ace.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/core/failure.h"

namespace {

using paddock::keelhouse::Failure;
using paddock::keelhouse::formatInheritance;
using paddock::keelhouse::formatPrincipal;
using paddock::keelhouse::formatRights;
using paddock::keelhouse::parseEntries;
using paddock::keelhouse::TypedEntry;

void require(bool holds) {
  if (!holds) std::abort();
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    lines.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

std::vector<std::string> wordsOf(const TypedEntry& entry) {
  const std::string inheritance = formatInheritance(entry.inheritance);
  return {entry.allow ? "allow" : "deny", formatPrincipal(entry.who),
          formatRights(entry.rights, true) + (inheritance.empty() ? "" : ":" + inheritance)};
}

// What was read is written in words that read the same.
void check(const TypedEntry& entry) {
  const std::vector<std::string> words = wordsOf(entry);
  const auto again = parseEntries(words);
  require(again.size() == 1 && wordsOf(again.front()) == words);
  require(again.front().rights == entry.rights && again.front().inheritance == entry.inheritance);
  require(again.front().who.kind == entry.who.kind);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const void* bytes = data;
  try {
    for (const TypedEntry& entry : parseEntries(linesOf({static_cast<const char*>(bytes), size}))) {
      check(entry);
    }
  } catch (const Failure&) {
    return 0;
  }
  return 0;
}
