#include "keelhouse/access/ace.h"

#include <optional>
#include <string_view>

#include "base/text.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/reply_status.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

// "isUser" is 0 for a user and 1 for a group: that is how the wire has it.
constexpr int kUser = 0;
constexpr int kGroup = 1;

std::uint32_t bitsOf(const Dictionary& entry, const char* key, std::uint32_t known) {
  return static_cast<std::uint32_t>(entry.integer(key).value_or(0)) & known;
}

std::optional<bool> allowOf(const std::string& text) {
  if (text == "YES") return true;
  if (text == "NO") return false;
  return std::nullopt;
}

std::optional<PrincipalType> typeOf(std::optional<std::int64_t> isUser) {
  if (isUser == kUser) return PrincipalType::user;
  if (isUser == kGroup) return PrincipalType::group;
  return std::nullopt;
}

}  // namespace

Ace readAce(const Value& entry) {
  Ace ace;
  const Dictionary* dictionary = entry.dictionary();
  if (dictionary == nullptr) return ace;
  ace.allow = allowOf(textOf(*dictionary, protocol::kAllowPermission));
  ace.guidText = textOf(*dictionary, "guid");
  ace.guid = parseGuid(ace.guidText);
  ace.displayName = textOf(*dictionary, protocol::kDisplayName);
  ace.type = typeOf(dictionary->integer(protocol::kIsUser));
  ace.rights = bitsOf(*dictionary, "bitmap", acl::kAllPermissions);
  ace.inheritance = bitsOf(*dictionary, "flags", acl::kAllFlags);
  return ace;
}

Dictionary sentBack(const Ace& ace) {
  Dictionary entry{{"guid", ace.guidText}, {"bitmap", ace.rights}, {"flags", ace.inheritance}};
  if (ace.allow) entry.set(protocol::kAllowPermission, *ace.allow ? "YES" : "NO");
  return entry;
}

Dictionary principalKeys(const Principal& principal) {
  if (principal.type == PrincipalType::user) {
    return {{protocol::kIsUser, kUser}, {protocol::kUniqueID, principal.id}};
  }
  return {{protocol::kIsUser, kGroup}, {protocol::kGroupID, principal.id}};
}

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
