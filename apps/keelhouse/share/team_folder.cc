#include "keelhouse/share/team_folder.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "base/text.h"
#include "keelhouse/access/ace.h"
#include "keelhouse/access/acl_changes.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/core/account_names.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/folder_settings.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPermissions = "770";
constexpr const char* kSetGroupId = "2";

WantedEntry entryOf(const Team& team) {
  WantedEntry entry;
  entry.who = team.who;
  entry.sent = wireKeys(team.who);
  entry.sent.set(protocol::kAllowPermission, "YES");
  entry.sent.set("bitmap", parseRights("read,write"));
  entry.sent.set("flags", parseInheritance("inherit"));
  return entry;
}

bool hasEntry(const Array& acl, const WantedEntry& wanted, Principals& principals) {
  const Ace sent = readAce(wanted.sent);
  return std::any_of(acl.begin(), acl.end(), [&](const Value& value) {
    const Ace ace = readAce(value);
    return ace.allow == sent.allow && ace.rights == sent.rights &&
           ace.inheritance == sent.inheritance && ace.guid &&
           principals.same(wanted.who, *ace.guid);
  });
}

// A folder that the user may not read is not reported as empty.
void noteContents(const Session& session, const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_empty(path, error)) return;
  session.notes << "keelhouse: note: what is in " << printable(path)
                << " already keeps its privileges; to give that to the team, too: keelhouse "
                   "propagate PATH --group --group-perm --acl\n";
}

}  // namespace

Team findTeam(const Session& session, const std::string& group) {
  const PrincipalName name = parsePrincipal("group:" + group);
  const auto number = parseInteger(group);
  if (number && *number >= 0 && *number < UINT32_MAX && !hostId(PrincipalType::group, group)) {
    const Principal principal{PrincipalType::group, static_cast<std::uint32_t>(*number)};
    const auto found = hostName(principal);
    if (!found) throw failure("the number " + group + " has no group name; nothing was changed");
    return {*found, {std::nullopt, principal}};
  }
  return {group, Principals(session).resolve(name)};
}

void giveToTeam(const Session& session, const std::string& path, const Team& team) {
  const std::string action =
      "the folder " + printable(path) + " cannot be given to the group " + printable(team.group);
  // Asked first, so that nothing is half done where the digit cannot be set.
  (void)readMode(session, path);
  const auto requireFolderThere = [&](const Dictionary& reading) {
    Dictionary privileges = privilegesIn(reading, path);
    if (!isFolder(privileges))
      throw failure(printable(path) + " is no folder; nothing was changed");
    return privileges;
  };
  changeFolder(
      session, path,
      [&](const Dictionary& reading) {
        (void)aclOf(requireFolderThere(reading), path);
        return Dictionary{{protocol::kFileAccessPrivs,
                           Dictionary{{"group", team.group}, {"privs", kPermissions}}}};
      },
      action);
  setModeBits(session, path, kSetGroupId);
  Principals principals(session);
  changeFolder(
      session, path,
      [&](const Dictionary& reading) {
        const Dictionary privileges = requireFolderThere(reading);
        const Array& acl = aclOf(privileges, path);
        const WantedEntry entry = entryOf(team);
        Dictionary written;
        if (!hasEntry(acl, entry, principals)) {
          written.set("acl", sentAcl(withAdded(keptEntries(acl), {entry}, std::nullopt)));
        }
        return Dictionary{{protocol::kFileAccessPrivs, std::move(written)}};
      },
      action);
  noteContents(session, path);
}

}  // namespace paddock::keelhouse
