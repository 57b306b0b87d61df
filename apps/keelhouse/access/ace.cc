#include "keelhouse/access/ace.h"

#include "keelhouse/access/acl_words.h"

namespace paddock::keelhouse {

namespace {

// "isUser" is 0 for a user and 1 for a group: that is how the wire has it.
constexpr int kUser = 0;
constexpr int kGroup = 1;

std::string textOf(const Dictionary& entry, const char* key) {
  const std::string* text = entry.string(key);
  return text != nullptr ? *text : "";
}

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
  ace.allow = allowOf(textOf(*dictionary, "allowPermission"));
  ace.guidText = textOf(*dictionary, "guid");
  ace.guid = parseGuid(ace.guidText);
  ace.displayName = textOf(*dictionary, "displayName");
  ace.type = typeOf(dictionary->integer("isUser"));
  ace.rights = bitsOf(*dictionary, "bitmap", kAllRights);
  ace.inheritance = bitsOf(*dictionary, "flags", kAllInheritance);
  return ace;
}

Dictionary sentBack(const Ace& ace) {
  Dictionary entry{{"guid", ace.guidText}, {"bitmap", ace.rights}, {"flags", ace.inheritance}};
  if (ace.allow) entry.set("allowPermission", *ace.allow ? "YES" : "NO");
  return entry;
}

Dictionary principalKeys(const Principal& principal) {
  if (principal.type == PrincipalType::user) {
    return {{"isUser", kUser}, {"uniqueID", principal.id}};
  }
  return {{"isUser", kGroup}, {"groupID", principal.id}};
}

}  // namespace paddock::keelhouse
