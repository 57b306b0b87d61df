// The membership service over a directory.
//
// Forwards: the first record, in search order, that has the id (UniqueID of a user,
// PrimaryGroupID of a group) and a GeneratedUID gives the GUID; without one it is the computed
// one. Backwards: the first record in search order, of one node users before groups, that has the
// GUID and an id gives the id; without one, a computed GUID gives the id that it was made from. So
// the GUID of every id leads back to it unless two records share a GUID. The computed GUID of an id
// stays an alias of that id when a record gives the id another GUID: lists that were made before
// that record still name the same person.
//
// Nodes after the one that has the answer are not queried, and one that does not answer is skipped:
// an id unknown to the other nodes then has its computed GUID, which always means it. A GUID
// unknown to the other nodes is reported as unknown only when all have answered; otherwise the
// error of the first one that did not is returned, as it is for ids when none did.
#pragma once

#include <string>

#include "base/guid.h"
#include "platform/directory.h"
#include "platform/membership.h"

namespace paddock {

class LinuxMembership final : public Membership {
 public:
  // The service must outlive this object.
  explicit LinuxMembership(DirectoryService& directory) : directory_(directory) {}

  int uidToGuid(std::uint32_t uid, Guid& guid) override;
  int gidToGuid(std::uint32_t gid, Guid& guid) override;
  std::vector<GuidAnswer> toGuids(const std::vector<Principal>& principals) override;
  int guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) override;

 private:
  int toGuid(const Principal& principal, Guid& guid);

  DirectoryService& directory_;
};

}  // namespace paddock
