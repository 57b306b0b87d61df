// Why a user may do what he may, in words: what decided each permission, and where the kernel,
// which knows nothing of the list, says otherwise.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "effectiveprivs/doors.h"
#include "effectiveprivs/evaluation.h"
#include "effectiveprivs/identity.h"
#include "effectiveprivs/question.h"
#include "platform/accounts.h"

namespace paddock::effectiveprivs {

struct ExplainedPermission {
  acl::Permission permission = 0;
  std::string name;
  bool granted = false;
  bool isDoubted = false;            // neither granted nor refused for certain
  std::string by;                    // a Reason, in a word
  std::optional<std::size_t> entry;  // from 0
  std::string principal;             // whom the entry or the mode's class is for; empty: no one
  // How the user belongs to that principal: groups, from the one that holds him by itself on.
  std::vector<std::string> through;
  std::string text;
};

struct Disagreement {
  acl::Permission permission = 0;
  std::string name;
  bool list = false;
  bool kernel = false;
  std::string why;
};

struct ObjectDescription {
  std::string path;
  bool isFolder = false;
  std::string owner;
  std::string group;
  std::string mode;  // of the three classes, octal
  // The number of its entries; absent when there is no list.
  std::optional<std::size_t> entries;
  bool isComplete = false;
  // Owner, group and mode that the list's tail names where they are others now; empty when none.
  std::string staleTail{};
  std::string formerOwner{};  // of these, when it is another one now
};

struct Explanation {
  ObjectDescription object;
  std::uint32_t uid = 0;
  std::string user;  // empty: no account has the uid
  acl::Permission bitmap = 0;
  std::vector<ExplainedPermission> permissions;
  std::vector<Disagreement> kernelDisagrees;
  std::string barrier;          // PathFacts::folderThatStops, its path; empty: none
  std::string kernelBitsApart;  // what KernelBits::isApart is about, "rwx"; empty: nothing
  PathAnswer answer;
  std::vector<LeftOutNode> leftOut;  // what only they know is missing

  // Whether an entry that may be for the user or not leaves anything in doubt.
  bool isDoubted() const;
};

ObjectDescription describe(Accounts& accounts, const std::string& path,
                           const ObjectPrivileges& object);

// `kernel` is absent of root's question. The path's `answer`, `barrier` and `leftOut` are for the
// caller to set.
Explanation explain(Accounts& accounts, const std::string& path, const Identity& user,
                    const Answer& answer, const std::optional<KernelAnswer>& kernel);
// Of those the one that is granted, else one that is in doubt, else the first.
const ExplainedPermission* permissionFor(const std::vector<ExplainedPermission>& all,
                                         acl::Permission wanted);
// What the list, or without one the mode, gives of reading and writing.
ListRights listRights(const std::vector<ExplainedPermission>& permissions);
// The same to an SMB server, of an object whose list has a stale tail.
ListRights staleListRights(Accounts& accounts, const ObjectPrivileges& object,
                           const Identity& user);

// One line for people, with its end; a second one about a stale tail.
std::string objectText(const ObjectDescription& object);
// What a question about one user begins with: the answer, and one line for each door.
std::string answerText(const Explanation& explanation);
// Lines for people, each with its end.
std::string explanationText(const Explanation& explanation);
// One line of JSON, without its end.
std::string explanationJson(const Explanation& explanation);

}  // namespace paddock::effectiveprivs
