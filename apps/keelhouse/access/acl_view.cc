#include "keelhouse/access/acl_view.h"

#include "keelhouse/access/acl_words.h"
#include "keelhouse/core/terminal_text.h"

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

}  // namespace paddock::keelhouse
