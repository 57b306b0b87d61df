#include "keelhouse/access/denied_groups.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <vector>

#include "keelhouse/access/ace.h"
#include "keelhouse/access/acl_commands.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/core/named_share.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_denials";
constexpr std::size_t kNamesShown = 10;

std::vector<std::string> namesIn(const Dictionary& denial) {
  std::vector<std::string> names;
  const Array* people = denial.array("people");
  if (people == nullptr) return names;
  for (const Value& person : *people) {
    if (person.string() != nullptr) names.push_back(*person.string());
  }
  return names;
}

// "anna, bert and 37 more".
std::string peopleText(const std::vector<std::string>& names, std::size_t count) {
  std::string text;
  const std::size_t shown = std::min(names.size(), kNamesShown);
  for (std::size_t at = 0; at < shown; ++at) text += (at == 0 ? "" : ", ") + printable(names[at]);
  return count > shown ? text + " and " + std::to_string(count - shown) + " more" : text;
}

// The words of a denial of this user like the list's entry.
std::string denialWord(const std::string& user, const Value& entry) {
  const Ace ace = readAce(entry);
  const std::uint32_t flags = ace.inheritance & ~acl::kInherited;
  std::string word = "deny user:" + user + " " + formatRights(ace.rights, true);
  if (flags != 0) word += ":" + formatInheritance(flags);
  return shellWord(word);
}

std::string remedyText(const std::string& path, std::size_t number,
                       const std::vector<std::string>& names, std::size_t count, const Array& acl) {
  std::string text;
  if (count == names.size() && count <= kNamesShown && number >= 1 && number <= acl.size()) {
    text = "To keep them out at every door: keelhouse acl add --at " + std::to_string(number) +
           " " + shellWord(path);
    for (const std::string& name : names) text += " " + denialWord(name, acl[number - 1]);
    text += "\n";
  }
  if (acl.empty()) return text;  // it is kept strict already
  return text + "To keep out whoever is in the group, also later: keelhouse acl strict " +
         shellWord(path) + "\n";
}

std::string denialText(const std::string& path, const Dictionary& denial, const Array& acl) {
  const auto number =
      static_cast<std::size_t>(std::max<std::int64_t>(denial.integer("number").value_or(0), 0));
  const auto count =
      static_cast<std::size_t>(std::max<std::int64_t>(denial.integer("count").value_or(0), 0));
  const std::string* group = denial.string("group");
  const std::string who = "group:" + (group != nullptr ? printable(*group) : "-");
  const std::vector<std::string> names = namesIn(denial);
  std::string text;
  if (count > 0) {
    text = "keelhouse: entry " + std::to_string(number) + " denies " + who +
           ", which the kernel cannot say: locally and over NFS it still lets in " +
           peopleText(names, count) + "; SMB refuses.\n" +
           remedyText(path, number, names, count, acl);
  }
  if (const std::string* owner = denial.string("owner")) {
    text += "keelhouse: " + printable(*owner) + " is in " + who + ", which entry " +
            std::to_string(number) +
            " denies, and is the owner: locally and over NFS the mode lets "
            "them in (keelhouse privs set).\n";
  }
  return text;
}

bool deniesGroup(const Value& entry) {
  constexpr std::uint32_t kDecisive = acl::kReadData | acl::kWriteData | acl::kExecute;
  const Ace ace = readAce(entry);
  return ace.allow == false && ace.type == PrincipalType::group && (ace.rights & kDecisive) != 0;
}

void noteDenials(const Session& session, const std::string& path, const Dictionary& reply,
                 const Array& acl) {
  const Array* denials = reply.array("denials");
  if (denials != nullptr) session.notes << deniedText(path, *denials, acl);
}

void noteUnknown(const Session& session, const std::string& why) {
  session.notes
      << "keelhouse: whether the kernel lets in members of a denied group cannot be told: " << why
      << ".\n";
}

// What setStrict answers.
Dictionary makeStrict(const Session& session, const std::string& path, bool strict) {
  const std::string action =
      "the list of " + path + (strict ? " cannot be kept strict" : " is still kept strict");
  auto reply = askIfLoaded(session, kPlugin, "setStrict", {{"path", path}, {"strict", strict}});
  if (!reply) throw failure(action + ": the plug-in paddock_denials is not loaded");
  requireDone(*reply, action);
  return std::move(*reply);
}

void reportStrict(const Session& session, const std::string& path, const Dictionary& reply) {
  if (!reply.boolean("strict").value_or(false)) {
    session.notes << "keelhouse: the list of " << printable(path)
                  << " denies no group, so there is nothing to keep strict.\n";
    return;
  }
  const std::int64_t written = reply.integer("written").value_or(0);
  session.notes << "keelhouse: the list of " << printable(path) << " is kept strict: " << written
                << (written == 1 ? " denial" : " denials")
                << " by name for groups, brought up to date once a day.\n";
  noteDenials(session, path, reply, {});
}

}  // namespace

std::string deniedText(const std::string& path, const Array& denials, const Array& acl) {
  std::string text;
  for (const Value& value : denials) {
    if (value.dictionary() != nullptr) text += denialText(path, *value.dictionary(), acl);
  }
  return text;
}

bool noteGroupDenials(const Session& session, const std::string& path, const Array& acl) {
  if (std::none_of(acl.begin(), acl.end(), deniesGroup)) return false;
  try {
    auto reply = askIfLoaded(session, kPlugin, "getDenied", {{"path", path}});
    if (!reply) {
      noteUnknown(session, "the plug-in paddock_denials is not loaded");
    } else if (reply->integer("status") != 0) {
      noteUnknown(session, messageOf(*reply));
    } else if (reply->boolean("strict").value_or(false)) {
      reportStrict(session, path, makeStrict(session, path, true));
      return true;
    } else {
      noteDenials(session, path, *reply, acl);
    }
  } catch (const Failure& failure) {
    // The list itself was changed.
    noteUnknown(session, printable(failure.what()));
  }
  return false;
}

ExitStatus keepStrict(const Session& session, const std::string& typedPath, bool strict) {
  const std::string path = folderPath(session, typedPath);
  const Dictionary reply = makeStrict(session, path, strict);
  if (strict) {
    reportStrict(session, path, reply);
  } else {
    session.notes << "keelhouse: the list of " << printable(path)
                  << " is not kept strict; its entries stay.\n";
  }
  return ExitStatus::done;
}

ExitStatus changeStrictly(const Session& session, const std::string& path,
                          const std::function<void(const Session&)>& change) {
  std::ostringstream meanwhile;
  change({session.daemon, meanwhile, meanwhile, session.json, session.root, session.terminal});
  try {
    keepStrict(session, path, true);
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
    // The list itself was changed.
    showAcl(session, path);
    throw failure("the list is as shown, but it is not kept strict: " + std::string(failed.what()) +
                  "\nTry again: keelhouse acl strict " + shellWord(path));
  }
  return showAcl(session, path);
}

}  // namespace paddock::keelhouse
