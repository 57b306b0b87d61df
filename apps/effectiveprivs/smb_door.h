// What SMB clients may do with a path: smb.conf(5).
//
// Samba is queried by testparm(1), which prints the configuration in effect. smbd runs with the
// rights of its client, so that the kernel's permissions apply as well as the list, from the
// topmost folder on.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "effectiveprivs/path_facts.h"
#include "platform/linux/acl/samba_accounts.h"

namespace paddock::effectiveprivs {

// Parameters by name, as testparm prints those that are not as usual.
using SmbSection = std::map<std::string, std::string>;

struct SmbShare {
  std::string name;
  SmbSection parameters;  // those of [global] are in it where the section has none of its own

  std::string value(const std::string& parameter, const std::string& usual = {}) const;
  bool isOn(const std::string& parameter, bool usual) const;
};

struct SmbConfiguration {
  SmbSection global;
  std::vector<SmbShare> shares;
};

SmbConfiguration parseSmbConfiguration(const std::string& text);

struct SmbPerson {
  std::string name;  // empty: no account has the uid
  KernelPerson kernel;
  bool isAnybody = false;  // who can log on, whatever the name is
};

// Where the kernel's ACLs are heeded, see samba/samba_attributes.h: whether smbd enforces the list.
// Unsure: cannot be determined.
enum class ListKind { none, inForce, overridden, unsure };

// What the list gives, or where there is none what the mode does, with the reason of what it
// does not give.
using ListRights = DoorRights;

// What a user has of an object by each of these.
struct SmbObject {
  ListRights list{};
  ListKind kind = ListKind::none;
  DoorRights kernel{};
  DoorRights mode{};  // the bits of every class that the user is in
  // What denies writing to every user, whatever account smbd maps the user to.
  DoorRight room{};
  samba::DosReadOnly readOnly = samba::DosReadOnly::no;
  std::string inside{};  // the path in the share, empty for the share's folder
};

// The rule: what smbd permits a user over a share with its module acl_xattr, configured to ignore
// the kernel's ACLs or not, and over a share without it. Any other setting of the share that might
// deny access, and is not known here, makes the result unknown.
DoorRights smbRights(const SmbShare& share, const SmbPerson& person, const SmbObject& object);

class SmbDoor {
 public:
  // Programs are run from below `root`. The arguments must outlive this object.
  SmbDoor(const std::string& root, const PathFacts& facts, SambaAccountReader& accounts);

  // The users and groups that the shares name, by which the path can be come to.
  std::vector<std::uint32_t> uidsThatMatter() const;
  std::vector<std::uint32_t> gidsThatMatter() const;
  // The best of these.
  DoorRights rightsOf(const SmbPerson& person, const ListRights& list, ListKind kind,
                      std::string& share) const;

 private:
  std::vector<std::string> namesInLists() const;
  // Why the user cannot log on; yes when nothing is known against it.
  DoorRight logOn(const SmbShare& share, const SmbPerson& person) const;

  const PathFacts& facts_;
  SambaAccountReader& accounts_;
  SmbConfiguration configuration_;
  struct Way {
    const SmbShare* share;
    std::string inside;  // the path in it
  };
  std::vector<Way> ways_;  // that lead to the path
  std::string fault_;      // why it cannot be determined
};

}  // namespace paddock::effectiveprivs
