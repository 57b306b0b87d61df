#include "paddock_denials/strict_lists.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include "base/text.h"
#include "paddock_denials/listed_entries.h"

namespace paddock {

namespace {

bool deniesGroup(const acl::Rule& entry) { return !entry.allow && entry.subject.isGroup(); }

bool deniesUser(const acl::Rule& entry) { return !entry.allow && entry.subject.isUser(); }

bool isLike(const acl::Rule& entry, const acl::Rule& other) {
  return entry.permissions == other.permissions &&
         (entry.flags | acl::kInherited) == (other.flags | acl::kInherited);
}

// For each entry the place of the group's denial that it was written for; its own place otherwise.
std::vector<std::size_t> servedBy(const std::vector<acl::Rule>& entries,
                                  const WrittenDenials& written) {
  std::vector<std::size_t> served(entries.size());
  for (std::size_t at = 0; at < entries.size(); ++at) {
    served[at] = at;
    if (!deniesGroup(entries[at])) continue;
    const auto users = written.find(entries[at].subject.id);
    if (users == written.end()) continue;
    for (std::size_t before = at; before-- > 0;) {
      const acl::Rule& entry = entries[before];
      if (!deniesUser(entry) || !isLike(entry, entries[at]) ||
          !users->second.contains(entry.subject.id)) {
        break;
      }
      served[before] = at;
    }
  }
  return served;
}

bool contains(const std::vector<Person>& people, std::uint32_t uid) {
  return std::any_of(people.begin(), people.end(),
                     [uid](const Person& one) { return one.uid == uid; });
}

}  // namespace

StrictList strictList(const Array& acl, const std::vector<acl::Rule>& entries,
                      const KernelSide& kernel, const MembersOf& membersOf,
                      const WrittenDenials& written) {
  const std::vector<GroupDenial> passed = passedDenials(entries, kernel, membersOf);
  const std::vector<std::size_t> served = servedBy(entries, written);
  StrictList strict;
  for (std::size_t at = 0; at < entries.size(); ++at) {
    if (acl[at].dictionary() == nullptr) throw DenialFailure(EINVAL, "the list cannot be read");
    const Dictionary& entry = *acl[at].dictionary();
    if (served[at] != at) {
      const acl::Rule& denial = entries[served[at]];
      if (contains(membersOf(denial.subject.id), entries[at].subject.id)) {
        strict.written[denial.subject.id].insert(entries[at].subject.id);
        strict.acl.emplace_back(sentBack(entry));
      } else {
        strict.isChanged = true;
      }
      continue;
    }
    if (deniesGroup(entries[at])) ++strict.denials;
    for (const GroupDenial& denial : passed) {
      if (denial.entry != at) continue;
      for (const Person& person : denial.letIn) {
        // A member who has one already gets access from a file system without ACLs of its own.
        if (!strict.written[denial.gid].insert(person.uid).second) continue;
        strict.acl.emplace_back(denialLike(entry, person.uid));
        strict.isChanged = true;
      }
    }
    strict.acl.emplace_back(sentBack(entry));
  }
  if (strict.isChanged && strict.acl.size() > kMostEntries) {
    throw DenialFailure(E2BIG,
                        "the list would have " + std::to_string(strict.acl.size()) + " entries; " +
                            std::to_string(kMostEntries) +
                            " can be kept strict. Take the group's members out of the groups "
                            "that are let in instead");
  }
  return strict;
}

Dictionary rememberedForm(const WrittenDenials& written) {
  Dictionary remembered;
  for (const auto& [gid, uids] : written) {
    Array list;
    for (const std::uint32_t uid : uids) list.emplace_back(uid);
    remembered.set(std::to_string(gid), std::move(list));
  }
  return remembered;
}

WrittenDenials writtenDenials(const Dictionary& remembered) {
  WrittenDenials written;
  for (const auto& [key, value] : remembered) {
    const auto gid = parseInteger(key);
    const Array* uids = value.array();
    if (!gid || *gid < 0 || uids == nullptr) continue;
    for (const Value& uid : *uids) {
      if (const auto number = readInteger(&uid)) {
        written[static_cast<std::uint32_t>(*gid)].insert(static_cast<std::uint32_t>(*number));
      }
    }
  }
  return written;
}

}  // namespace paddock
