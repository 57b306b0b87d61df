// The membership service: user and group ids to GUIDs and back.
//
// A user or group whose record has a "dsAttrTypeStandard:GeneratedUID" has that GUID; every other
// id has a fixed GUID computed from it. So each uid and gid maps, with or without a record, and
// each GUID made here maps back. Errors are errno values. Thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/guid.h"
#include "base/principal.h"

namespace paddock {

class Membership {
 public:
  struct GuidAnswer {
    int error = 0;
    Guid guid{};
  };

  virtual ~Membership() = default;
  // 0 and `guid`, or an errno and `guid` all zero.
  virtual int uidToGuid(std::uint32_t uid, Guid& guid) = 0;
  virtual int gidToGuid(std::uint32_t gid, Guid& guid) = 0;
  // The same for several users and groups, in their order; remote queries may be batched.
  virtual std::vector<GuidAnswer> toGuids(const std::vector<Principal>& principals) {
    std::vector<GuidAnswer> answers(principals.size());
    for (std::size_t at = 0; at < principals.size(); ++at)
      answers[at].error = principals[at].type == PrincipalType::user
                              ? uidToGuid(principals[at].id, answers[at].guid)
                              : gidToGuid(principals[at].id, answers[at].guid);
    return answers;
  }
  // 0 and the id with its type; ENOENT when the GUID names neither a user nor a group (`id`
  // is then 0).
  virtual int guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) = 0;
};

}  // namespace paddock
