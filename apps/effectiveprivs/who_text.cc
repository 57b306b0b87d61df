#include <algorithm>

#include "base/printable.h"
#include "base/text_table.h"
#include "base/value.h"
#include "effectiveprivs/who.h"
#include "wire/json.h"

namespace paddock::effectiveprivs {

namespace {

// What grants the rights, each reason once with the rights that it grants.
std::string reasonsOf(const Rights& rights) {
  std::vector<std::pair<std::string, std::string>> reasons;
  for (std::size_t at = 0; at < kRights; ++at) {
    if (!rights[at].granted) continue;
    const auto known = std::find_if(reasons.begin(), reasons.end(),
                                    [&](const auto& one) { return one.second == rights[at].text; });
    if (known == reasons.end()) {
      reasons.emplace_back(kRightNames[at], rights[at].text);
    } else {
      known->first += std::string(", ") + kRightNames[at];
    }
  }
  std::string text;
  for (const auto& [names, reason] : reasons)
    text.append(text.empty() ? "" : "; ").append(names).append(": ").append(reason);
  return text.empty() ? "-" : printable(text);
}

std::vector<std::string> rowOf(const std::string& name, const Rights& rights) {
  std::vector<std::string> row{"", printable(name)};
  for (const Right& right : rights) row.emplace_back(right.granted ? "yes" : "no");
  row.push_back(reasonsOf(rights));
  return row;
}

// With the uid where two of them have one name.
std::string nameIn(const std::vector<Person>& people, std::size_t at) {
  const Person& person = people[at];
  const bool isShared = (at > 0 && people[at - 1].name == person.name) ||
                        (at + 1 < people.size() && people[at + 1].name == person.name);
  return isShared ? person.name + " (uid " + std::to_string(person.uid) + ")" : person.name;
}

bool areTheSame(const Rights& one, const Rights& other) {
  return std::equal(one.begin(), one.end(), other.begin(),
                    [](const Right& left, const Right& right) {
                      return left.granted == right.granted && left.text == right.text;
                    });
}

Value rightsValue(const Rights& rights) {
  Dictionary value;
  for (std::size_t at = 0; at < kRights; ++at) {
    const Right& right = rights[at];
    Dictionary one{{"granted", right.granted}, {"by", right.by}, {"text", right.text}};
    if (right.entry) one.set("entry", static_cast<std::uint64_t>(*right.entry));
    if (!right.principal.empty()) one.set("principal", right.principal);
    one.set("through", Array(right.through.begin(), right.through.end()));
    value.set(kRightNames[at], std::move(one));
  }
  return value;
}

}  // namespace

std::string whoText(const std::string& head, const Who& who) {
  std::vector<std::vector<std::string>> rows{{"", "WHO", "READ", "WRITE", "PERMISSIONS", "BY"}};
  for (std::size_t at = 0; at < who.people.size(); ++at)
    rows.push_back(rowOf(nameIn(who.people, at), *who.people[at].rights));
  rows.push_back(rowOf("(everybody else)", who.everybodyElse));
  if (!areTheSame(who.everybodyElse, who.withoutAccount))
    rows.push_back(rowOf("(a uid without an account)", who.withoutAccount));
  std::string text = head + formatTable(rows);
  if (who.left > 0)
    text += std::to_string(who.left) + " more, whom only groups mean, are not listed\n";
  return text;
}

std::string whoJson(const std::string& path, const Who& who) {
  Array people;
  for (const Person& person : who.people)
    people.emplace_back(Dictionary{
        {"user", person.name}, {"uid", person.uid}, {"rights", rightsValue(*person.rights)}});
  return wire::writeJson(Dictionary{{"path", path},
                                    {"people", std::move(people)},
                                    {"notListed", static_cast<std::uint64_t>(who.left)},
                                    {"everybodyElse", rightsValue(who.everybodyElse)},
                                    {"withoutAccount", rightsValue(who.withoutAccount)}});
}

}  // namespace paddock::effectiveprivs
