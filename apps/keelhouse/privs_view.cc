#include "keelhouse/privs_view.h"

#include "keelhouse/acl_view.h"
#include "keelhouse/folder_privileges.h"
#include "keelhouse/mode_text.h"
#include "keelhouse/terminal_text.h"

namespace paddock::keelhouse {

namespace {

void appendLine(std::string& lines, const char* name, const std::string* value) {
  if (value == nullptr) return;
  lines += std::string(name) + ": " + (value->empty() ? "-" : printable(*value)) + "\n";
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

}  // namespace

std::string formatPrivileges(const Dictionary& privileges, Principals& principals) {
  std::string lines;
  appendLine(lines, "path", privileges.string("path"));
  appendLine(lines, "type", privileges.string("fileType"));
  appendLine(lines, "owner", privileges.string("owner"));
  appendLine(lines, "group", privileges.string("group"));
  if (const std::string* mode = privileges.string("privs")) {
    const std::string text = formatMode(*mode);
    appendLine(lines, "mode", &text);
  }
  return lines + aclText(privileges, principals);
}

}  // namespace paddock::keelhouse
