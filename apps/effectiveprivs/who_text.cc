#include <algorithm>

#include "base/text.h"
#include "base/value.h"
#include "effectiveprivs/who.h"
#include "wire/json.h"

namespace paddock::effectiveprivs {

namespace {

constexpr std::size_t kMostNotes = 12;

// What grants the rights, each reason once with the rights that it grants.
std::string reasonsOf(const Rights& rights) {
  std::vector<std::pair<std::string, std::string>> reasons;
  for (std::size_t at = 0; at < kRights; ++at) {
    if (!rights[at].granted && !rights[at].isDoubted) continue;
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

const char* wordOf(const Right& right) {
  return right.isDoubted ? "?" : (right.granted ? "yes" : "no");
}

// "read,write", "no", "?".
std::string doorWord(const DoorRights& rights) {
  const std::string word = verdictWord(rights);
  if (word == "yes") return "read,write";
  return word == "cannot tell" ? "?" : word;
}

std::vector<std::string> rowOf(const std::string& name, const Person& person) {
  std::vector<std::string> row{"", printable(name)};
  for (const Right& right : *person.rights) row.emplace_back(wordOf(right));
  for (const Door& door : person.answer.doors) row.push_back(doorWord(door.rights));
  row.push_back(reasonsOf(*person.rights));
  return row;
}

// With the uid where two of them have one name.
std::string nameIn(const std::vector<Person>& people, std::size_t at) {
  const Person& person = people[at];
  const bool isShared = (at > 0 && people[at - 1].name == person.name) ||
                        (at + 1 < people.size() && people[at + 1].name == person.name);
  return isShared ? person.name + " (uid " + std::to_string(person.uid) + ")" : person.name;
}

bool areTheSame(const Person& one, const Person& other) {
  return std::equal(one.rights->begin(), one.rights->end(), other.rights->begin(),
                    [](const Right& left, const Right& right) {
                      return left.granted == right.granted && left.text == right.text;
                    }) &&
         std::equal(one.answer.doors.begin(), one.answer.doors.end(), other.answer.doors.begin(),
                    [](const Door& left, const Door& right) {
                      return doorWord(left.rights) == doorWord(right.rights);
                    });
}

// Why a door grants less than the list, each reason once: most users have the same.
std::string doorNotes(const Who& who) {
  std::vector<std::pair<std::string, std::string>> notes;
  const auto add = [&](const Person& person) {
    for (const Door& door : person.answer.doors) {
      const std::pair<std::string, std::string> note{door.name, reasonText(door.rights)};
      if (!note.second.empty() && std::find(notes.begin(), notes.end(), note) == notes.end() &&
          notes.size() < kMostNotes)
        notes.push_back(note);
    }
  };
  for (const Person& person : who.people) add(person);
  add(who.everybodyElse);
  std::stable_sort(notes.begin(), notes.end(),
                   [](const auto& one, const auto& other) { return one.first < other.first; });
  std::string text;
  for (const auto& [door, why] : notes) {
    std::string note = door;
    text.append(printable(note.append(": ").append(why))).append("\n");
  }
  return text;
}

Value rightsValue(const Rights& rights) {
  Dictionary value;
  for (std::size_t at = 0; at < kRights; ++at) {
    const Right& right = rights[at];
    Dictionary one{{"granted", right.granted},
                   {"sure", !right.isDoubted},
                   {"by", right.by},
                   {"text", right.text}};
    if (right.entry) one.set("entry", static_cast<std::uint64_t>(*right.entry));
    if (!right.principal.empty()) one.set("principal", right.principal);
    one.set("through", Array(right.through.begin(), right.through.end()));
    value.set(kRightNames[at], std::move(one));
  }
  return value;
}

// The verdict for the path as a whole, for all users who are not named individually.
std::string headLine(const Who& who) {
  return answerLine(who.everybodyElse.answer, who.everybodyElse.name) + "\n";
}

Value personValue(const Person& person) {
  Dictionary value = *rightsValue(*person.rights).dictionary();
  value.set("answer", answerValue(person.answer, person.name));
  value.set("doors", doorsValue(person.answer));
  return value;
}

}  // namespace

std::string whoText(const std::string& head, const Who& who) {
  std::vector<std::vector<std::string>> rows{
      {"", "WHO", "READ", "WRITE", "PERMISSIONS", "SMB", "LOCAL", "NFS", "BY"}};
  for (std::size_t at = 0; at < who.people.size(); ++at)
    rows.push_back(rowOf(nameIn(who.people, at), who.people[at]));
  rows.push_back(rowOf("(" + who.everybodyElse.name + ")", who.everybodyElse));
  if (!areTheSame(who.everybodyElse, who.withoutAccount))
    rows.push_back(rowOf("(" + who.withoutAccount.name + ")", who.withoutAccount));
  std::string text = headLine(who) + head + formatTable(rows) + doorNotes(who);
  if (who.left > 0)
    text += std::to_string(who.left) + " more, whom only groups mean, are not listed\n";
  return text + leftOutText(who.leftOut);
}

std::string whoJson(const std::string& path, const Who& who) {
  Array people;
  for (const Person& person : who.people)
    people.emplace_back(Dictionary{{"user", person.name},
                                   {"uid", person.uid},
                                   {"rights", rightsValue(*person.rights)},
                                   {"answer", answerValue(person.answer, person.name)},
                                   {"doors", doorsValue(person.answer)}});
  Dictionary value{{"path", path},
                   {"people", std::move(people)},
                   {"notListed", static_cast<std::uint64_t>(who.left)},
                   {"everybodyElse", personValue(who.everybodyElse)},
                   {"withoutAccount", personValue(who.withoutAccount)}};
  if (!who.leftOut.empty()) value.set("nodesLeftOut", leftOutValue(who.leftOut));
  return wire::writeJson(value);
}

}  // namespace paddock::effectiveprivs
