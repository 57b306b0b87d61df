#include "platform/linux/ldap/ldap_record_format.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <set>
#include <tuple>

#include "base/text.h"
#include "platform/directory.h"
#include "platform/linux/ldap/ldap_mirror.h"
#include "platform/linux/ldap/ldap_text.h"
#include "platform/linux/process/case_fold.h"
#include "platform/linux/process/sha256.h"

namespace paddock {

namespace {

constexpr const char* kClass = "paddockRecord";
constexpr const char* kType = "paddockType";
constexpr const char* kValue = "paddockValue";
constexpr const char* kMatch = "paddockMatch";
constexpr const char* kRevision = "paddockRevision";
constexpr const char* kCreated = "paddockCreated";
constexpr const char* kKey = "paddockKey";

constexpr std::size_t kLongestMatch = 128;
constexpr std::size_t kLongestKey = 192;
constexpr std::size_t kLongestShown = 1024;
// Room for as many attributes as will ever be set behind the last one.
constexpr unsigned kPositions = 4'000'000'000;

struct StoredValue {
  unsigned position = 0;
  unsigned ordinal = 0;
  std::string attribute;
  std::string value;
};

[[noreturn]] void refuse(const LdapEntry& entry, const std::string& why) {
  constexpr std::size_t kLongestName = 500;
  throw DirectoryError(EIO, printable("the entry " + entry.dn.substr(0, kLongestName) + " " + why));
}

std::string hexSha256(std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string digits;
  for (const std::uint8_t byte : sha256(text)) {
    digits += kDigits[byte >> 4U];
    digits += kDigits[byte & 0xFU];
  }
  return digits;
}

// --- Values with their places: POSITION.ORDINAL NAME=VALUE, where "\" and "=" of a name are \5c,
// \3d

std::string escapedName(std::string_view name) {
  std::string text;
  for (const char c : name) {
    if (c == '\\')
      text += "\\5c";
    else if (c == '=')
      text += "\\3d";
    else
      text += c;
  }
  return text;
}

bool unescapeName(std::string_view text, std::string& name) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::string_view code = text.substr(at, 3);
    if (text[at] != '\\')
      name += text[at];
    else if (code == "\\5c")
      name += '\\';
    else if (code == "\\3d")
      name += '=';
    else
      return false;
    if (text[at] == '\\') at += 2;
  }
  return !name.empty();
}

std::string storedText(const StoredValue& stored) {
  return std::to_string(stored.position) + "." + std::to_string(stored.ordinal) + " " +
         escapedName(stored.attribute) + "=" + stored.value;
}

// Reads a number that `end` follows, and takes both from the text.
bool takeNumber(std::string_view& text, char end, unsigned& number) {
  const auto [last, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const auto size = static_cast<std::size_t>(last - text.data());
  if (error != std::errc() || size == text.size() || text[size] != end) return false;
  text.remove_prefix(size + 1);
  return number < kPositions;
}

bool readStored(std::string_view text, StoredValue& stored) {
  if (!takeNumber(text, '.', stored.position) || !takeNumber(text, ' ', stored.ordinal))
    return false;
  const std::size_t sign = text.find('=');
  if (sign == std::string_view::npos || !unescapeName(text.substr(0, sign), stored.attribute))
    return false;
  stored.value = text.substr(sign + 1);
  return isDirectoryText(stored.attribute) && isDirectoryText(stored.value);
}

std::vector<StoredValue> storedValues(const LdapEntry& entry) {
  std::vector<StoredValue> all;
  for (const std::string& text : entry.values(kValue)) {
    StoredValue stored;
    if (!readStored(text, stored)) refuse(entry, "has a paddockValue that is not understood");
    all.push_back(std::move(stored));
  }
  std::sort(all.begin(), all.end(), [](const StoredValue& left, const StoredValue& right) {
    return std::tie(left.position, left.ordinal) < std::tie(right.position, right.ordinal);
  });
  return all;
}

// --- Records

LdapRecordState::Attribute* find(LdapRecordState& record, std::string_view name) {
  const auto found =
      std::find_if(record.attributes.begin(), record.attributes.end(),
                   [name](const LdapRecordState::Attribute& one) { return one.name == name; });
  return found == record.attributes.end() ? nullptr : &*found;
}

void set(LdapRecordState& record, const std::string& name, const std::vector<std::string>& values) {
  if (LdapRecordState::Attribute* present = find(record, name)) {
    present->values = values;
    return;
  }
  const unsigned position = record.attributes.empty() ? 0 : record.attributes.back().position + 1;
  record.attributes.push_back({position, name, values});
}

void erase(LdapRecordState& record, const std::string& name) {
  std::erase_if(record.attributes,
                [&](const LdapRecordState::Attribute& one) { return one.name == name; });
}

void readValues(const LdapEntry& entry, LdapRecordState& record) {
  std::set<std::string> names{schema::kRecordType};
  for (StoredValue& stored : storedValues(entry)) {
    auto& attributes = record.attributes;
    const bool isNext = attributes.empty() || attributes.back().position != stored.position;
    if (isNext && !names.insert(stored.attribute).second)
      refuse(entry, "has one attribute in two places");
    if (isNext) attributes.push_back({stored.position, stored.attribute, {}});
    if (attributes.back().name != stored.attribute)
      refuse(entry, "has two attributes in one place");
    attributes.back().values.push_back(std::move(stored.value));
  }
}

// What others have changed in the attributes that show the values is a change of the record.
void readShown(const LdapEntry& entry, LdapRecordState& record) {
  for (const LdapMirror& mirror : mirrorsOf(record.type)) {
    const std::string name(mirror.attribute);
    const auto& shown = entry.values(mirror.shown);
    const LdapRecordState::Attribute* stored = find(record, name);
    if (isShown(stored != nullptr ? stored->values : std::vector<std::string>(), shown)) continue;
    if (std::any_of(shown.begin(), shown.end(),
                    [](const std::string& text) { return !isDirectoryText(text); }))
      refuse(entry, "has a " + std::string(mirror.shown) + " that is no text");
    if (!shown.empty())
      set(record, name, shown);
    else if (name != schema::kRecordName)
      erase(record, name);
  }
}

std::string matchText(std::string_view attribute, std::string_view value) {
  const std::string folded = caseFold(value);
  const bool isPlain = attribute.find('=') == std::string_view::npos &&
                       !attribute.starts_with('#') &&
                       attribute.size() + folded.size() < kLongestMatch;
  if (isPlain) return std::string(attribute) + "=" + folded;
  return "#" + hexSha256(std::string(attribute) + '\0' + folded);
}

// Additional classes of an entry created by another client are kept.
void addClasses(const std::vector<std::string>& old, const std::vector<std::string>& wanted,
                std::vector<LdapChange>& changes) {
  LdapChange missing{LdapChange::Kind::add, "objectClass", {}};
  for (const std::string& name : wanted) {
    const bool has = std::any_of(old.begin(), old.end(), [&](const std::string& present) {
      return asciiLower(present) == asciiLower(name);
    });
    if (!has) missing.values.push_back(name);
  }
  if (!missing.values.empty()) changes.push_back(std::move(missing));
}

std::vector<std::string> sortedSet(const std::vector<std::string>& values) {
  const std::set<std::string> set(values.begin(), values.end());
  return {set.begin(), set.end()};
}

}  // namespace

const std::vector<std::string>& recordEntryAttributes() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all{"objectClass", kType, kValue,      kMatch,           kRevision,
                                 kCreated,      kKey,  "entryUUID", "createTimestamp"};
    for (std::string& shown : mirrorAttributes()) all.push_back(std::move(shown));
    return all;
  }();
  return names;
}

// The server's clock counts; within a second, the clock of who made the records.
std::string creationOrder(const LdapEntry& entry) {
  constexpr std::size_t kSeconds = 14;  // YYYYMMDDHHMMSS
  constexpr std::size_t kDigits = 20;
  std::string second = entry.first("createTimestamp").substr(0, kSeconds);
  second.resize(kSeconds, '0');
  const std::string created = entry.first(kCreated).substr(0, kDigits);
  return second + std::string(kDigits - created.size(), '0') + created + entry.first("entryUUID");
}

LdapRecordState recordOf(const LdapEntry& entry) {
  LdapRecordState record{.dn = entry.dn,
                         .key = entry.first(kKey),
                         .uuid = entry.first("entryUUID"),
                         .revision = entry.first(kRevision),
                         .type = entry.first(kType),
                         .order = creationOrder(entry),
                         .attributes = {}};
  if (record.type.empty() || !isDirectoryText(record.type)) refuse(entry, "has no type");
  readValues(entry, record);
  readShown(entry, record);
  if (record.attributes.empty() || record.attributes.front().name != schema::kRecordName ||
      record.names().front().empty())
    refuse(entry, "has no name");
  return record;
}

std::vector<AttributeChange> attributesOf(const LdapRecordState& record) {
  std::vector<AttributeChange> all;
  all.reserve(record.attributes.size() + 1);
  for (const LdapRecordState::Attribute& one : record.attributes) {
    all.push_back({one.name, one.values});
    if (all.size() == 1) all.push_back({schema::kRecordType, {record.type}});
  }
  return all;
}

void applyChanges(LdapRecordState& record, const std::vector<AttributeChange>& changes) {
  for (const AttributeChange& change : changes) {
    const bool isType = change.attribute == schema::kRecordType;
    if (isType && !change.values.empty() && change.values != std::vector<std::string>{record.type})
      throw DirectoryError(EINVAL, "a record's type cannot be changed");
    if (isType) continue;
    if (!change.values.empty())
      set(record, change.attribute, change.values);
    else if (change.attribute == schema::kRecordName)
      record.attributes.front().values.resize(1);
    else
      erase(record, change.attribute);
  }
}

LdapAttributes entryOf(const LdapRecordState& record) {
  LdapAttributes entry;
  entry["objectClass"].emplace_back(kClass);
  if (!mirrorClassOf(record.type).empty())
    entry["objectClass"].emplace_back(mirrorClassOf(record.type));
  entry[kType] = {record.type};
  if (!record.revision.empty()) entry[kRevision] = {record.revision};
  for (const LdapRecordState::Attribute& one : record.attributes) {
    for (unsigned ordinal = 0; ordinal < one.values.size(); ++ordinal) {
      const std::string& value = one.values[ordinal];
      entry[kValue].push_back(storedText({one.position, ordinal, one.name, value}));
      entry[kMatch].push_back(matchText(one.name, value));
    }
    for (const LdapMirror& mirror : mirrorsOf(record.type))
      if (mirror.attribute == one.name) entry[std::string(mirror.shown)] = shownValues(one.values);
  }
  for (auto& [attribute, values] : entry) values = sortedSet(values);
  return entry;
}

LdapAttributes entryOf(const LdapEntry& entry) {
  LdapAttributes found;
  for (const std::string& attribute : recordEntryAttributes()) {
    const bool isFixed = attribute == "entryUUID" || attribute == "createTimestamp" ||
                         attribute == kCreated || attribute == kKey;
    if (!isFixed && !entry.values(attribute).empty())
      found[attribute] = sortedSet(entry.values(attribute));
  }
  return found;
}

std::vector<LdapChange> differences(const LdapAttributes& before, const LdapAttributes& after) {
  using Kind = LdapChange::Kind;
  std::vector<LdapChange> changes;
  const auto of = [](const LdapAttributes& all, const std::string& name) {
    const auto found = all.find(name);
    return found == all.end() ? std::vector<std::string>() : found->second;
  };
  std::set<std::string> names;
  for (const auto* all : {&before, &after})
    for (const auto& [name, values] : *all) names.insert(name);
  for (const std::string& name : names) {
    const std::vector<std::string> old = of(before, name);
    const std::vector<std::string> made = of(after, name);
    if (name == "objectClass") {
      addClasses(old, made, changes);
      continue;
    }
    LdapChange gone{Kind::remove, name, {}};
    LdapChange come{Kind::add, name, {}};
    std::set_difference(old.begin(), old.end(), made.begin(), made.end(),
                        std::back_inserter(gone.values));
    std::set_difference(made.begin(), made.end(), old.begin(), old.end(),
                        std::back_inserter(come.values));
    if (!gone.values.empty()) changes.push_back(std::move(gone));
    if (!come.values.empty()) changes.push_back(std::move(come));
  }
  return changes;
}

std::string recordFilter(const std::string& attribute, const std::string& value) {
  std::vector<std::string> filters{equals(kMatch, matchText(attribute, value))};
  // An entry that others made or changed is found by what it shows.
  const bool mayBeShown = !value.empty() && value.size() <= kLongestShown;
  std::set<std::string_view> asked;
  for (const char* type : {"dsRecTypeStandard:SharePoints", "dsRecTypeStandard:Mounts"})
    for (const LdapMirror& mirror : mirrorsOf(type))
      if (mirror.attribute == attribute && mayBeShown && asked.insert(mirror.shown).second)
        filters.push_back(equals(mirror.shown, value));
  return anyOf(filters);
}

std::string recordKey(const std::string& type, const std::string& name) {
  const std::string folded = caseFold(name);
  const auto isPrintable = [](const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
  };
  const bool isPlain = type.find('/') == std::string::npos && !type.starts_with('#') &&
                       !type.starts_with(' ') && !folded.ends_with(' ') && isPrintable(type) &&
                       isPrintable(folded) &&
                       (type + "/" + folded).find("  ") == std::string::npos &&
                       type.size() + folded.size() < kLongestKey;
  if (isPlain) return type + "/" + folded;
  return "#" + hexSha256(type + '\0' + folded);
}

std::string recordRdn(const std::string& type, const std::string& name) {
  return "paddockKey=" + dnText(recordKey(type, name));
}

}  // namespace paddock
