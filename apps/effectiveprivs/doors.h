// The ways to a path, and what each of them lets a user do: SMB, programs of the host, NFS.
//
// The answer for the path as a whole is what remains after every component of the path is
// evaluated. It is "cannot tell" when an ACL entry for an unknown principal might change it, also
// where the kernel, which does not know that entry, grants access.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/value.h"
#include "effectiveprivs/installation.h"
#include "effectiveprivs/nfs_door.h"
#include "effectiveprivs/path_facts.h"
#include "effectiveprivs/smb_door.h"

namespace paddock::effectiveprivs {

struct Door {
  std::string key;   // "smb"
  std::string name;  // "SMB"
  DoorRights rights;
  std::string where;                     // of SMB: the names of the shares
  std::vector<NfsClientRights> clients;  // of NFS
};

inline constexpr std::size_t kDoors = 3;

struct PathAnswer {
  DoorRights whole;
  std::string stop;  // the folder above that local programs do not pass, see PathFacts::barrier
  std::array<Door, kDoors> doors;
};

// A user at the doors.
struct Visitor {
  KernelPerson kernel;
  std::string name{};      // empty: no account has the uid
  bool isAnybody = false;  // of no name, and yet with accounts wherever it takes one
};

// What there is to ask about many users. Users and groups are those of whom the doors make more or
// less than of others.
struct DoorQuestions {
  std::function<PathAnswer(const Visitor& visitor, const ListRights& list)> answerFor;
  std::vector<std::uint32_t> uids{};
  std::vector<std::uint32_t> gids{};
};

class Doors {
 public:
  // Both must outlive this object. Throws Failure.
  Doors(const PinnedObject& object, Installation& installation);

  const PathFacts& facts() const { return facts_; }
  // `list`: what the list and the mode give over SMB, with reasons.
  PathAnswer answerFor(const Visitor& visitor, const ListRights& list, ListKind kind) const;
  // Valid as long as this object.
  DoorQuestions questions(ListKind kind) const;

 private:
  std::vector<std::uint32_t> uidsThatMatter() const;
  std::vector<std::uint32_t> gidsThatMatter() const;

  const PathFacts facts_;
  const SmbDoor smb_;
  const NfsDoor nfs_;
};

// "yes", "no", "cannot tell".
const char* accessWord(Access access);
// Of both rights: "yes", "read", "write", "no", "cannot tell".
const char* verdictWord(const DoorRights& rights);
// The reasons of what is denied, each once; empty when nothing is.
std::string reasonText(const DoorRights& rights);

// The line that an answer begins with, without its end: "No: stopped at /vol/priv, mode 700, owner
// root".
std::string answerLine(const PathAnswer& answer, const std::string& user);
// A table of the doors for people.
std::string doorsText(const PathAnswer& answer);
// "answer" and "doors" of the JSON form.
Value answerValue(const PathAnswer& answer, const std::string& user);
Value doorsValue(const PathAnswer& answer);

}  // namespace paddock::effectiveprivs
