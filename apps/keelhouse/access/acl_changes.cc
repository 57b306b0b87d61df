#include "keelhouse/access/acl_changes.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "base/text.h"
#include "keelhouse/access/ace.h"
#include "keelhouse/access/privileges_view.h"
#include "keelhouse/core/failure.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

std::string numberText(std::size_t index) { return std::to_string(index + 1); }

WantedEntry newEntry(const TypedEntry& entry, const Principals& principals) {
  WantedEntry wanted;
  wanted.who = principals.resolve(entry.who);
  wanted.sent = wireKeys(wanted.who);
  wanted.sent.set(protocol::kAllowPermission, entry.allow ? "YES" : "NO");
  wanted.sent.set("bitmap", entry.rights);
  wanted.sent.set("flags", entry.inheritance);
  return wanted;
}

// Rights and flags can be compared on what was sent, as it is made of them alone.
bool isTakenOver(const WantedEntry& wanted, const Ace& found, Principals& principals) {
  const Ace sent = readAce(wanted.sent);
  return found.allow == sent.allow && found.rights == sent.rights &&
         found.inheritance == sent.inheritance && found.guid &&
         principals.same(wanted.who, *found.guid);
}

Removal parseRemoval(const std::string& word) {
  const auto number = parseInteger(word);
  if (!number) return parsePrincipal(word);
  if (*number <= 0) throw usageFailure("\"" + word + "\" is no entry's number: the first is 1");
  return static_cast<std::size_t>(*number);
}

Failure noSuchNumber(std::size_t number, std::size_t count) {
  return failure("there is no entry " + std::to_string(number) + ": the ACL has " +
                 std::to_string(count) + "\nSee them: keelhouse acl show PATH");
}

std::set<std::size_t> placesOf(const WantedAcl& acl, std::size_t number) {
  if (number > acl.size()) throw noSuchNumber(number, acl.size());
  return {number - 1};
}

std::set<std::size_t> placesOf(const WantedAcl& acl, const PrincipalName& name,
                               Principals& principals) {
  const ResolvedPrincipal who = principals.resolve(name);
  std::set<std::size_t> places;
  for (std::size_t at = 0; at < acl.size(); ++at) {
    const auto& guid = acl[at].who.guid;
    if (guid && principals.same(who, *guid)) places.insert(at);
  }
  if (places.empty()) {
    throw failure("no entry is about " + formatPrincipal(name) +
                  "\nSee them: keelhouse acl show PATH");
  }
  return places;
}

// What it does, not by what name its user or group is known.
bool isSameEntry(const Value& left, const Value& right) {
  const Ace one = readAce(left);
  const Ace other = readAce(right);
  return one.allow == other.allow && one.guidText == other.guidText && one.rights == other.rights &&
         one.inheritance == other.inheritance;
}

// The entries of `list` that `other` does not have as often.
Array missingIn(Array other, const Array& list) {
  Array missing;
  for (const Value& entry : list) {
    const auto found = std::find_if(other.begin(), other.end(),
                                    [&](const Value& one) { return isSameEntry(one, entry); });
    if (found != other.end()) {
      other.erase(found);
    } else {
      missing.push_back(entry);
    }
  }
  return missing;
}

void appendChange(std::string& text, const std::string& entry, const char* what) {
  constexpr std::size_t kLongest = 1000;
  if (text.size() > kLongest) {
    if (!text.ends_with("...")) text += ", ...";
    return;
  }
  text += (text.empty() ? "\"" : ", \"") + entry + "\" was " + what;
}

}  // namespace

WantedAcl newEntries(const std::vector<TypedEntry>& entries, const Principals& principals) {
  WantedAcl acl;
  acl.reserve(entries.size());
  for (const TypedEntry& entry : entries) acl.push_back(newEntry(entry, principals));
  return acl;
}

WantedAcl keptEntries(const Array& acl) {
  WantedAcl kept;
  kept.reserve(acl.size());
  for (const Value& entry : acl) {
    const Ace ace = readAce(entry);
    if (!ace.allow || !ace.guid) {
      throw failure("entry " + numberText(kept.size()) +
                    " is of a kind that cannot be written back\nReplace the whole ACL: keelhouse "
                    "acl set PATH ENTRY...");
    }
    kept.push_back({sentBack(ace), {ace.guid, std::nullopt}});
  }
  return kept;
}

WantedAcl withAdded(WantedAcl acl, WantedAcl added, std::optional<std::size_t> number) {
  const std::size_t place = number ? *number - 1 : acl.size();
  if (place > acl.size()) throw noSuchNumber(*number, acl.size());
  acl.insert(acl.begin() + static_cast<std::ptrdiff_t>(place),
             std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()));
  return acl;
}

std::vector<Removal> parseRemovals(const std::vector<std::string>& words) {
  std::vector<Removal> removals;
  removals.reserve(words.size());
  for (const std::string& word : words) removals.push_back(parseRemoval(word));
  return removals;
}

WantedAcl withRemoved(WantedAcl acl, const std::vector<Removal>& removals, Principals& principals) {
  std::set<std::size_t> removed;
  for (const Removal& removal : removals) {
    const auto* number = std::get_if<std::size_t>(&removal);
    removed.merge(number != nullptr ? placesOf(acl, *number)
                                    : placesOf(acl, std::get<PrincipalName>(removal), principals));
  }
  WantedAcl left;
  for (std::size_t at = 0; at < acl.size(); ++at) {
    if (!removed.contains(at)) left.push_back(std::move(acl[at]));
  }
  return left;
}

Array sentAcl(const WantedAcl& acl) {
  Array entries;
  entries.reserve(acl.size());
  for (const WantedEntry& entry : acl) entries.emplace_back(entry.sent);
  return entries;
}

bool beginAlike(const Array& left, const Array& right, std::size_t count) {
  if (left.size() < count || right.size() < count)
    return left.size() == right.size() && beginAlike(left, right, left.size());
  const auto end = left.begin() + static_cast<std::ptrdiff_t>(count);
  return std::equal(left.begin(), end, right.begin(), isSameEntry);
}

std::string changesBetween(const Array& before, const Array& after, bool folder,
                           Principals& principals) {
  std::string text;
  for (const Value& entry : missingIn(before, after)) {
    appendChange(text, entryText(readAce(entry), folder, principals), "added");
  }
  for (const Value& entry : missingIn(after, before)) {
    appendChange(text, entryText(readAce(entry), folder, principals), "removed");
  }
  if (text.empty() && !beginAlike(before, after, before.size())) return "their order was changed";
  return text;
}

bool isSameList(const WantedAcl& wanted, const Array& found) {
  return std::equal(wanted.begin(), wanted.end(), found.begin(), found.end(),
                    [](const WantedEntry& entry, const Value& present) {
                      return entry.sent == sentBack(readAce(present));
                    });
}

std::optional<std::string> differenceOf(const WantedAcl& wanted, const Array& found, bool folder,
                                        Principals& principals) {
  for (std::size_t at = 0; at < std::min(wanted.size(), found.size()); ++at) {
    const Ace ace = readAce(found[at]);
    if (isTakenOver(wanted[at], ace, principals)) continue;
    return "entry " + numberText(at) + " reads back as \"" + entryText(ace, folder, principals) +
           "\"";
  }
  if (wanted.size() == found.size()) return std::nullopt;
  return "of " + std::to_string(wanted.size()) + " entries " + std::to_string(found.size()) +
         " read back";
}

}  // namespace paddock::keelhouse
