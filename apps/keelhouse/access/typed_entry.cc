#include "keelhouse/access/typed_entry.h"

#include <optional>
#include <string_view>

#include "base/text.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kForm =
    "write allow WHO RIGHTS or deny WHO RIGHTS:INHERITANCE, such as "
    "allow user:anna read,write:inherit";

std::optional<bool> actionOf(std::string_view word) {
  const std::string lower = asciiLower(word);
  if (lower == "allow") return true;
  if (lower == "deny") return false;
  return std::nullopt;
}

std::string_view trimmed(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

Failure notAnEntry(std::string_view text) {
  return usageFailure("\"" + std::string(text) + "\" is no ACL entry: " + kForm);
}

TypedEntry makeEntry(bool allow, std::string_view who, std::string_view rights) {
  TypedEntry entry;
  entry.allow = allow;
  entry.who = parsePrincipal(who);
  const std::size_t colon = rights.find(':');
  entry.rights = parseRights(rights.substr(0, colon));
  if (colon != std::string_view::npos) {
    entry.inheritance = parseInheritance(rights.substr(colon + 1));
  }
  return entry;
}

// A whole entry in one word. A name may have blanks in it; what stands before and behind has none.
TypedEntry parseEntry(std::string_view word) {
  const std::string_view text = trimmed(word);
  const std::size_t first = text.find(' ');
  const std::size_t last = text.rfind(' ');
  if (first == last) throw notAnEntry(word);
  const auto allow = actionOf(text.substr(0, first));
  const std::string_view who = trimmed(text.substr(first, last - first));
  if (!allow || who.empty()) throw notAnEntry(word);
  return makeEntry(*allow, who, text.substr(last + 1));
}

}  // namespace

std::vector<TypedEntry> parseEntries(const std::vector<std::string>& words) {
  std::vector<TypedEntry> entries;
  for (std::size_t at = 0; at < words.size();) {
    const auto allow = actionOf(words[at]);
    if (!allow) {
      entries.push_back(parseEntry(words[at++]));
    } else if (words.size() - at >= 3) {
      entries.push_back(makeEntry(*allow, words[at + 1], words[at + 2]));
      at += 3;
    } else {
      throw usageFailure("the entry after \"" + words[at] + "\" is not complete: " + kForm);
    }
  }
  return entries;
}

}  // namespace paddock::keelhouse
