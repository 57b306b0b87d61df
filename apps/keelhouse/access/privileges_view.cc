#include "keelhouse/access/privileges_view.h"

#include <array>

#include "keelhouse/access/acl_words.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/core/number_text.h"
#include "keelhouse/core/terminal_text.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

std::string actionText(const Ace& ace) {
  // An entry that is neither has no other known property.
  if (!ace.allow) return "unknown";
  return *ace.allow ? "allow" : "deny";
}

std::string orDash(std::string text) { return text.empty() ? "-" : std::move(text); }

// The full name, where it is not what `who` says already.
std::string fullName(const Ace& ace, const std::string& who) {
  if (ace.displayName.empty() || ace.displayName == ace.guidText) return "-";
  return who.ends_with(":" + ace.displayName) ? "-" : printable(ace.displayName);
}

std::vector<std::string> tableRow(std::size_t number, const Ace& ace, bool folder,
                                  Principals& principals) {
  const std::string who = whoText(ace, principals);
  return {std::to_string(number),
          actionText(ace),
          printable(who),
          ace.allow ? formatRights(ace.rights, folder) : "-",
          orDash(formatInheritance(ace.inheritance)),
          fullName(ace, who)};
}

}  // namespace

std::string whoText(const Ace& ace, Principals& principals) {
  if (ace.guid) return principals.identify(*ace.guid).text;
  return ace.guidText.empty() ? "-" : ace.guidText;
}

std::string entryText(const Ace& ace, bool folder, Principals& principals) {
  std::string text =
      actionText(ace) + " " + whoText(ace, principals) + " " + formatRights(ace.rights, folder);
  const std::string inheritance = formatInheritance(ace.inheritance);
  if (!inheritance.empty()) text += ":" + inheritance;
  return text;
}

std::string formatAclTable(const Array& acl, bool folder, Principals& principals) {
  std::vector<std::vector<std::string>> rows{
      {"NO", "ACTION", "WHO", "RIGHTS", "INHERITANCE", "NAME"}};
  for (const Value& entry : acl) {
    rows.push_back(tableRow(rows.size(), readAce(entry), folder, principals));
  }
  return formatTable(rows);
}

namespace {

void appendLine(std::string& lines, const char* name, const std::string* value) {
  if (value == nullptr) return;
  lines += std::string(name) + ": " + (value->empty() ? "-" : printable(*value)) + "\n";
}

const std::string* nameOrNumber(const std::string* name, const std::string* number) {
  return name != nullptr && name->empty() && number != nullptr ? number : name;
}

std::string aclText(const Dictionary& privileges, Principals& principals) {
  const Array* acl = privileges.array("acl");
  if (acl == nullptr) {
    const std::string* error = privileges.string(protocol::kAclErr);
    return "acl: " + (error != nullptr ? "cannot be read, " + printable(*error) : "not told") +
           "\n";
  }
  if (acl->empty()) return "acl: no entries\n";
  return "acl:\n" + formatAclTable(*acl, isFolder(privileges), principals);
}

std::string named(const std::string& noun, const std::string* name) {
  return name == nullptr || name->empty() ? noun : noun + " " + printable(*name);
}

// What a class may do by its digit of the mode. Nothing in a folder can be reached without the
// right to search it.
std::string accessText(char digit, bool folder) {
  static constexpr std::array<const char*, 8> kFolder = {
      "cannot get in",
      "can get to what they know by name",
      "cannot get in",
      "can make files, and get to what they know by name",
      "can list names, and cannot get in",
      "can read",
      "can list names, and cannot get in",
      "can read and change"};
  static constexpr std::array<const char*, 8> kFile = {
      "can do nothing",        "can run it",
      "can write it",          "can write and run it",
      "can read it",           "can read and run it",
      "can read and write it", "can read, write and run it"};
  if (digit < '0' || digit > '7') return "cannot be told";
  return (folder ? kFolder : kFile).at(static_cast<std::size_t>(digit - '0'));
}

}  // namespace

std::string formatPrivileges(const Dictionary& privileges, const std::optional<ModeAndIds>& all,
                             Principals& principals) {
  std::string lines;
  appendLine(lines, "path", privileges.string("path"));
  appendLine(lines, "type", privileges.string(protocol::kFileType));
  appendLine(lines, "owner", nameOrNumber(privileges.string("owner"), all ? &all->uid : nullptr));
  appendLine(lines, "group", nameOrNumber(privileges.string("group"), all ? &all->gid : nullptr));
  if (const std::string* mode = privileges.string("privs")) {
    const std::string text = formatMode(all ? all->mode : *mode);
    appendLine(lines, "mode", &text);
  }
  return lines + aclText(privileges, principals);
}

std::string accessByMode(const Dictionary& privileges) {
  const std::string* mode = privileges.string("privs");
  if (mode == nullptr || mode->size() != 3) return "its mode cannot be told";
  const bool folder = isFolder(privileges);
  std::string text = named("its owner", privileges.string("owner"));
  text += " " + accessText(mode->at(0), folder) + ", ";
  text += named("the group", privileges.string("group")) + " " + accessText(mode->at(1), folder);
  return text + " and others " + accessText(mode->at(2), folder);
}

std::string formatAccessByMode(const Dictionary& privileges) {
  const std::string* mode = privileges.string("privs");
  const std::string* path = privileges.string("path");
  std::string text = (path != nullptr ? printable(*path) : "It") + " has no ACL entries";
  if (mode == nullptr || mode->size() != 3) return text + ".";
  return text + ". By its mode " + printable(*mode) + " " + accessByMode(privileges) + ".";
}

}  // namespace paddock::keelhouse
