// Which records become accounts of the host, and the lines that they become: of passwd(5), group(5)
// and shadow(5), as libnss-extrausers reads them.
//
// A record without an id is no account, and nothing is said of it. One that cannot be an account is
// left out, and said to be: its id is below 500, no number, or the host's or an earlier record's;
// its name is the host's, or one that cannot stand in such a file; its home or shell is no path.
//
// Nor does a record make anybody a member of a group that is as good as root: a group of such a
// name (isPrivilegedGroupName) is left out whether the host has it or gets it later, and so is a
// user whose primary group is one that the host has, or is below 500 and not "users", 100. What can
// be a name or a path has no control character and no colon; a name is also not empty, has no comma
// and no slash, no blank at its ends, no "+", "-" or "#" in front, is no number, not "." or "..",
// and of at most 255 bytes.
//
// A user without a PrimaryGroupID is in "nogroup", one without a home in /nonexistent, one without
// a shell cannot log in. A RealName that cannot stand in the file is left out alone. A password's
// hash is written for users with a shell to log in with, "*" for all others.
//
// Members are written by the first name of their record; one that is no record of the directory is
// written as it is named. A member whose record is left out because the host's user of its name is
// another one is left out too, so that no user gets rights that were meant for another one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/accounts/account_records.h"

namespace paddock {

struct AccountLines {
  std::string passwd;
  std::string group;
  std::string shadow;
  // What was omitted and why; one line each, for display.
  std::vector<std::string> remarks;
};

// Whether the members of a group of this name can usually become root, or read what only root may:
// "admin", "docker", "sudo" and the like, in letters of either case.
bool isPrivilegedGroupName(std::string_view name);

// In the order of the records.
AccountLines accountLines(const AccountRecords& records, HostAccounts& host);

}  // namespace paddock
