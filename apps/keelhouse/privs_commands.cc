#include "keelhouse/privs_commands.h"

#include "base/text.h"
#include "keelhouse/folder_privileges.h"
#include "keelhouse/host_accounts.h"
#include "keelhouse/mode_text.h"
#include "keelhouse/named_share.h"
#include "keelhouse/privs_view.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kOwner = "owner";
constexpr std::string_view kGroup = "group";
constexpr std::string_view kMode = "privs";

void checkName(const std::optional<std::string>& name, const std::string& option) {
  if (!name) return;
  // The daemon takes an empty name for "leave it as it is".
  if (name->empty()) throw usageFailure(option + " cannot be empty");
  if (!isValidUtf8(*name)) throw usageFailure(option + " is not UTF-8");
}

// The daemon takes names alone; a number that is no name is looked up.
std::string accountName(PrincipalType type, const std::string& typed) {
  if (hostId(type, typed)) return typed;
  const auto number = parseInteger(typed);
  if (!number || *number < 0 || *number > UINT32_MAX) return typed;
  const auto name = hostName({type, static_cast<std::uint32_t>(*number)});
  if (name) return *name;
  throw failure("the number " + typed + " has no " +
                (type == PrincipalType::user ? "user" : "group") +
                " name, and owners are set by name");
}

Dictionary requested(const PrivilegeChanges& changes) {
  checkName(changes.owner, "--owner");
  checkName(changes.group, "--group");
  Dictionary privileges;
  if (changes.mode) privileges.set(std::string(kMode), parseMode(*changes.mode));
  if (changes.owner)
    privileges.set(std::string(kOwner), accountName(PrincipalType::user, *changes.owner));
  if (changes.group)
    privileges.set(std::string(kGroup), accountName(PrincipalType::group, *changes.group));
  return privileges;
}

// One account may have several names.
bool sameAccount(PrincipalType type, const std::string& left, const std::string& right) {
  if (left == right) return true;
  const auto id = hostId(type, left);
  return id && hostId(type, right) == id;
}

bool tookOver(std::string_view key, const std::string& wanted, const std::string& found) {
  if (key == kOwner) return sameAccount(PrincipalType::user, wanted, found);
  if (key == kGroup) return sameAccount(PrincipalType::group, wanted, found);
  return wanted == found;
}

Failure notTakenOver(std::string_view key, const std::string& path, const std::string& wanted,
                     const std::string* found) {
  const std::string noun(key == kMode ? "mode" : key);
  std::string text = "the ";
  text.append(noun).append(" ").append(wanted).append(" was not taken over: ").append(path);
  text.append(" reads back with ");
  if (found != nullptr) {
    text.append(noun).append(" \"").append(*found).append("\"");
  } else {
    text.append("none");
  }
  return failure(text.append(", although the daemon reported success"));
}

void checkTakenOver(const std::string& path, const Dictionary& wanted, const Dictionary& found) {
  for (const std::string_view key : {kOwner, kGroup, kMode}) {
    const std::string* want = wanted.string(key);
    if (want == nullptr) continue;
    const std::string* have = found.string(key);
    if (have == nullptr || !tookOver(key, *want, *have)) {
      throw notTakenOver(key, path, *want, have);
    }
  }
}

void print(const Session& session, const Dictionary& privileges) {
  if (session.json) {
    session.out << wire::writeJsonPretty(privileges) << '\n';
    return;
  }
  Principals principals(session);
  session.out << formatPrivileges(privileges, principals);
}

}  // namespace

ExitStatus showPrivileges(const Session& session, const std::string& typedPath) {
  print(session, readPrivileges(session, folderPath(session, typedPath)));
  return ExitStatus::done;
}

ExitStatus setPrivileges(const Session& session, const std::string& typedPath,
                         const PrivilegeChanges& changes) {
  if (changes.empty()) throw usageFailure("privs set: no option says what to change");
  const std::string path = folderPath(session, typedPath);
  const Dictionary wanted = requested(changes);
  const Dictionary found =
      writePrivileges(session, path, wanted, "the privileges of " + path + " cannot be changed");
  checkTakenOver(path, wanted, found);
  print(session, found);
  return ExitStatus::done;
}

}  // namespace paddock::keelhouse
