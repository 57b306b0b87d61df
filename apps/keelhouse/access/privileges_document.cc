#include "keelhouse/access/privileges_document.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "keelhouse/access/ace.h"
#include "keelhouse/access/acl_words.h"
#include "keelhouse/access/folder_privileges.h"
#include "keelhouse/access/privileges_view.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/json_document.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kUserPrefix = "user:";
constexpr std::string_view kGroupPrefix = "group:";
constexpr const char* kUnknown = "unknown";

const std::vector<std::string> kDocumentKeys{"path", "type",     "owner",    "group", "mode",
                                             "acl",  "complete", "aclError", "log"};
const std::vector<std::string> kEntryKeys{"kind",  "name",   "fullName",   "guid",
                                          "allow", "rights", "inheritance"};

Array wordsIn(const std::string& text) {
  Array words;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    words.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

// "user" and the name of "user:anna". Who has no name of that form is a kind of its own, unless it
// is a GUID, which says nothing.
void describeWho(Dictionary& entry, const std::string& who, const Ace& ace) {
  for (const std::string_view prefix : {kUserPrefix, kGroupPrefix}) {
    if (!who.starts_with(prefix)) continue;
    entry.set("kind", prefix.substr(0, prefix.size() - 1));
    entry.set("name", who.substr(prefix.size()));
    return;
  }
  const bool isKnown = ace.guid && !parseGuid(who);
  entry.set("kind", isKnown ? who : kUnknown);
}

Dictionary entryDocument(const Ace& ace, bool folder, Principals& principals) {
  Dictionary entry;
  const std::string who = whoText(ace, principals);
  describeWho(entry, who, ace);
  if (!ace.guidText.empty()) entry.set("guid", ace.guidText);
  const std::string* name = entry.string("name");
  const bool saysMore = !ace.displayName.empty() && ace.displayName != ace.guidText &&
                        (name == nullptr || *name != ace.displayName);
  if (saysMore) entry.set("fullName", ace.displayName);
  if (!ace.allow) return entry;
  entry.set("allow", *ace.allow);
  entry.set("rights", ace.rights == 0 ? Array{} : wordsIn(formatRights(ace.rights, folder)));
  if (ace.inheritance != 0) entry.set("inheritance", wordsIn(formatInheritance(ace.inheritance)));
  return entry;
}

Array entriesOf(const Array& acl, bool folder, Principals& principals) {
  Array entries;
  entries.reserve(acl.size());
  for (const Value& entry : acl) {
    entries.emplace_back(entryDocument(readAce(entry), folder, principals));
  }
  return entries;
}

std::optional<PrincipalName> namedIn(const Dictionary& entry, const std::string& what) {
  const std::string* kind = textIn(entry, "kind", what);
  const std::string* name = textIn(entry, "name", what);
  if (name == nullptr) return std::nullopt;
  if (kind == nullptr || (*kind != "user" && *kind != "group")) {
    throw usageFailure(what + R"(: "kind" of a "name" is "user" or "group")");
  }
  return parsePrincipal(*kind + ":" + *name);
}

// A hand-edited document must not grant to the old user what it specifies for the new one.
void requireSame(const PrincipalName& name, const Guid& guid, const std::string& what,
                 Principals& principals) {
  const std::string found = principals.identify(guid).text;
  if (found == formatPrincipal(name) || principals.same(principals.resolve(name), guid)) return;
  throw usageFailure(what + " is about " + formatPrincipal(name) +
                     ", but its \"guid\" is that of " + found + "\nLeave out one of the two.");
}

ResolvedPrincipal principalIn(const Dictionary& entry, const std::string& what,
                              Principals& principals) {
  const std::optional<PrincipalName> name = namedIn(entry, what);
  const std::string* guidText = textIn(entry, "guid", what);
  if (guidText == nullptr) {
    if (name) return principals.resolve(*name);
    throw usageFailure(what + R"( says not whom it is about: "kind" and "name", or "guid")");
  }
  const std::optional<Guid> guid = parseGuid(*guidText);
  if (!guid) throw usageFailure(what + ": \"guid\" is no GUID: " + *guidText);
  if (name) requireSame(*name, *guid, what, principals);
  return {guid, std::nullopt};
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ",") + word;
  return text;
}

WantedEntry wantedEntry(const Value& value, const std::string& what, Principals& principals) {
  const Dictionary* entry = value.dictionary();
  if (entry == nullptr) throw usageFailure(what + " is no JSON object");
  requireKnownKeys(*entry, kEntryKeys, what);
  const bool* allow = booleanIn(*entry, "allow", what);
  if (allow == nullptr) {
    throw usageFailure(what + R"( says neither "allow": true nor false, and so cannot be written)");
  }
  if (!entry->contains("rights")) throw usageFailure(what + R"( has no "rights")");
  const std::vector<std::string> rights = textsIn(*entry, "rights", what);
  const std::vector<std::string> inheritance = textsIn(*entry, "inheritance", what);
  WantedEntry wanted;
  wanted.who = principalIn(*entry, what, principals);
  wanted.sent = wireKeys(wanted.who);
  wanted.sent.set(protocol::kAllowPermission, *allow ? "YES" : "NO");
  wanted.sent.set("bitmap", rights.empty() ? 0U : parseRights(joined(rights)));
  wanted.sent.set("flags", inheritanceFlags(inheritance));
  return wanted;
}

WantedAcl wantedAcl(const Array& entries, Principals& principals) {
  WantedAcl wanted;
  wanted.reserve(entries.size());
  for (const Value& entry : entries) {
    const std::string what = "entry " + std::to_string(wanted.size() + 1);
    wanted.push_back(wantedEntry(entry, what, principals));
  }
  return wanted;
}

std::optional<std::string> textOrNone(const Dictionary& document, const char* key) {
  const std::string* text = textIn(document, key, "the document");
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

// The name, or the number of one that has none.
void setAccount(Dictionary& document, const char* key, const std::string* name,
                const std::string* number) {
  if (name != nullptr && !name->empty()) {
    document.set(key, *name);
  } else if (name != nullptr && number != nullptr) {
    document.set(key, *number);
  }
}

}  // namespace

Dictionary aclDocument(const Dictionary& privileges, const std::string& path, const Array& acl,
                       Principals& principals) {
  return {{"path", path}, {"acl", entriesOf(acl, isFolder(privileges), principals)}};
}

bool leavesToMode(const WantedPrivileges& wanted) {
  if (!wanted.acl) return false;
  return wanted.complete ? !*wanted.complete : wanted.acl->empty();
}

void addCompleteness(Dictionary& document, const std::optional<ListState>& state) {
  if (state && state->present && document.contains("acl"))
    document.set("complete", state->complete);
}

Dictionary privilegesDocument(const Dictionary& privileges, const std::optional<ModeAndIds>& mode,
                              Principals& principals) {
  Dictionary document;
  if (const std::string* path = privileges.string("path")) document.set("path", *path);
  if (const std::string* type = privileges.string(protocol::kFileType)) document.set("type", *type);
  setAccount(document, "owner", privileges.string("owner"), mode ? &mode->uid : nullptr);
  setAccount(document, "group", privileges.string("group"), mode ? &mode->gid : nullptr);
  const std::string* permissions = privileges.string("privs");
  if (mode) {
    document.set("mode", mode->mode);
  } else if (permissions != nullptr) {
    document.set("mode", *permissions);
  }
  if (const Array* acl = privileges.array("acl")) {
    document.set("acl", entriesOf(*acl, isFolder(privileges), principals));
  }
  if (const std::string* error = privileges.string(protocol::kAclErr))
    document.set("aclError", *error);
  return document;
}

WantedPrivileges wantedPrivileges(const Dictionary& document, Principals& principals) {
  requireKnownKeys(document, kDocumentKeys, "the document");
  WantedPrivileges wanted{textOrNone(document, "owner"), textOrNone(document, "group"),
                          textOrNone(document, "mode"), std::nullopt, std::nullopt};
  if (const bool* complete = booleanIn(document, "complete", "the document"))
    wanted.complete = *complete;
  if (const Array* entries = arrayIn(document, "acl", "the document")) {
    wanted.acl = wantedAcl(*entries, principals);
  }
  return wanted;
}

}  // namespace paddock::keelhouse
