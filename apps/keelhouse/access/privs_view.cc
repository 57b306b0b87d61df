#include "keelhouse/access/privs_view.h"

#include <array>

#include "keelhouse/access/acl_view.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/core/mode_text.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

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
    const std::string* error = privileges.string("aclErr");
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
  appendLine(lines, "type", privileges.string("fileType"));
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
