#include "effectiveprivs/doors.h"

#include <algorithm>

#include "base/text.h"
#include "base/value.h"

namespace paddock::effectiveprivs {

namespace {

// The right that the doors leave, of which `list` is what the list says.
DoorRight wholeRight(const std::array<Door, kDoors>& doors, DoorRight DoorRights::*right,
                     const DoorRight& list) {
  const auto with = [&](Access access) {
    return std::find_if(doors.begin(), doors.end(),
                        [&](const Door& door) { return (door.rights.*right).access == access; });
  };
  auto found = with(Access::yes);
  if (found == doors.end()) found = with(Access::unknown);
  // What the host's own programs are kept from says more than a door that is not there.
  if (found == doors.end()) return doors[1].rights.*right;
  return list.access == Access::unknown ? list : found->rights.*right;
}

bool isTheSame(const DoorRights& one, const DoorRights& other) {
  return one.read.access == other.read.access && one.write.access == other.write.access;
}

// The doors that grant access past what stops local programs.
std::string pastText(const PathAnswer& answer) {
  std::string text;
  for (const Door& door : answer.doors) {
    const bool read = door.rights.read.access == Access::yes;
    const bool write = door.rights.write.access == Access::yes;
    if (!read && !write) continue;
    text += "; but over " + door.name + ": " +
            (read && write ? "read and write" : (read ? "read" : "write"));
  }
  return text;
}

std::string wholeText(const DoorRights& whole, const std::string& user) {
  const Access read = whole.read.access;
  const Access write = whole.write.access;
  if (read == Access::unknown)
    return "Cannot tell: " + whole.read.why +
           (write == Access::yes ? "; sure is that " + user + " may write" : "");
  if (write == Access::unknown)
    return "Cannot tell about writing: " + whole.write.why + "; " + user +
           (read == Access::yes ? " may read" : " may not read");
  if (read == Access::yes && write == Access::yes) return "Yes: " + user + " may read and write";
  if (read == Access::yes)
    return "Read only: " + user + " may read, and not write: " + whole.write.why;
  if (write == Access::yes)
    return "Write only: " + user + " may write, and not read: " + whole.read.why;
  return "No: " + reasonText(whole);
}

Value rightsValue(const DoorRights& rights) {
  Dictionary value{{"verdict", verdictWord(rights)},
                   {"read", accessWord(rights.read.access)},
                   {"write", accessWord(rights.write.access)},
                   {"reason", reasonText(rights)}};
  return value;
}

}  // namespace

Doors::Doors(const PinnedObject& object, Installation& installation)
    : facts_(object, installation.accounts()),
      smb_(installation.root(), facts_, installation.samba()),
      nfs_(installation.root(), facts_) {}

std::vector<std::uint32_t> Doors::uidsThatMatter() const {
  std::vector<std::uint32_t> uids = facts_.uidsThatMatter();
  for (const std::uint32_t uid : smb_.uidsThatMatter()) uids.push_back(uid);
  return uids;
}

std::vector<std::uint32_t> Doors::gidsThatMatter() const {
  std::vector<std::uint32_t> gids = facts_.gidsThatMatter();
  for (const std::uint32_t gid : smb_.gidsThatMatter()) gids.push_back(gid);
  return gids;
}

DoorQuestions Doors::questions(ListKind kind) const {
  return {[this, kind](const Visitor& visitor, const ListRights& list) {
            return answerFor(visitor, list, kind);
          },
          uidsThatMatter(), gidsThatMatter()};
}

PathAnswer Doors::answerFor(const Visitor& visitor, const ListRights& list, ListKind kind) const {
  PathAnswer answer;
  Door& smb = answer.doors[0];
  Door& local = answer.doors[1];
  Door& nfs = answer.doors[2];
  smb.key = "smb";
  smb.name = "SMB";
  smb.rights =
      smb_.rightsOf({visitor.name, visitor.kernel, visitor.isAnybody}, list, kind, smb.where);
  local.key = local.name = "local";
  local.rights = facts_.kernelRights(visitor.kernel);
  nfs.key = "nfs";
  nfs.name = "NFS";
  nfs.rights = nfs_.rightsOf(visitor.kernel, nfs.clients);
  answer.stop = facts_.barrier(visitor.kernel);
  answer.whole = {wholeRight(answer.doors, &DoorRights::read, list.read),
                  wholeRight(answer.doors, &DoorRights::write, list.write)};
  return answer;
}

const char* accessWord(Access access) {
  switch (access) {
    case Access::no:
      return "no";
    case Access::yes:
      return "yes";
    case Access::unknown:
      break;
  }
  return "cannot tell";
}

const char* verdictWord(const DoorRights& rights) {
  const Access read = rights.read.access;
  const Access write = rights.write.access;
  if (read == Access::unknown || write == Access::unknown) return "cannot tell";
  if (read == Access::yes) return write == Access::yes ? "yes" : "read";
  return write == Access::yes ? "write" : "no";
}

std::string reasonText(const DoorRights& rights) {
  const std::string& read = rights.read.why;
  const std::string& write = rights.write.why;
  if (read == write || write.empty()) return read;
  if (read.empty()) return write;
  return "read: " + read + "; write: " + write;
}

std::string answerLine(const PathAnswer& answer, const std::string& user) {
  if (!answer.stop.empty()) return printable("No: " + answer.stop + pastText(answer));
  const bool isEverywhere =
      std::all_of(answer.doors.begin(), answer.doors.end(), [&](const Door& door) {
        const bool isThere = door.key == "local" || !door.where.empty() || !door.clients.empty();
        return !isThere || isTheSame(door.rights, answer.whole);
      });
  return printable(wholeText(answer.whole, user) +
                   (isEverywhere ? "" : " (not the same at every door)"));
}

std::string doorsText(const PathAnswer& answer) {
  std::vector<std::vector<std::string>> rows{{"", "DOOR", "READ", "WRITE", "WHY"}};
  for (const Door& door : answer.doors) {
    std::string why = reasonText(door.rights);
    if (why.empty() && !door.where.empty()) why = "as " + door.where;
    rows.push_back({"", door.name, accessWord(door.rights.read.access),
                    accessWord(door.rights.write.access), why.empty() ? "-" : printable(why)});
    for (const NfsClientRights& client : door.clients) {
      const std::string reason = reasonText(client.rights);
      rows.push_back({"", "- " + printable(client.client), accessWord(client.rights.read.access),
                      accessWord(client.rights.write.access),
                      printable(client.path + "(" + client.options + ")" +
                                (reason.empty() ? "" : ": " + reason))});
    }
    if (!door.clients.empty())
      rows.push_back({"", "- any other", "no", "no", "not among these clients"});
  }
  return formatTable(rows);
}

Value answerValue(const PathAnswer& answer, const std::string& user) {
  Dictionary value{{"read", accessWord(answer.whole.read.access)},
                   {"write", accessWord(answer.whole.write.access)},
                   {"text", answerLine(answer, user)}};
  if (!answer.stop.empty()) value.set("stop", answer.stop);
  return value;
}

Value doorsValue(const PathAnswer& answer) {
  Dictionary doors;
  for (const Door& door : answer.doors) {
    Dictionary value = *rightsValue(door.rights).dictionary();
    if (door.key == "smb") value.set("shares", door.where);
    if (door.key == "nfs") {
      Array clients;
      for (const NfsClientRights& client : door.clients) {
        Dictionary one = *rightsValue(client.rights).dictionary();
        one.set("client", client.client);
        one.set("path", client.path);
        one.set("options", client.options);
        clients.emplace_back(std::move(one));
      }
      value.set("clients", std::move(clients));
    }
    doors.set(door.key, std::move(value));
  }
  return doors;
}

}  // namespace paddock::effectiveprivs
