#include "keelhouse/share/served_states.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "base/text.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/share/share_names.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_services";
constexpr const char* kSharing = "paddock_sharing";

struct NameKey {
  const char* key;
  const char* word;
};
constexpr std::array kNames = {NameKey{"name", "record"}, NameKey{protocol::kNameOverVSP, "VSP"},
                               NameKey{protocol::kNameOverSMB, "SMB"},
                               NameKey{protocol::kNameOverFTP, "FTP"}};
constexpr std::array kProtocols = {NameKey{"smb", "SMB"}, NameKey{"nfs", "NFS"},
                                   NameKey{"vsp", "VSP"}, NameKey{"ftp", "FTP"},
                                   NameKey{"dnssd", "DNS-SD"}};

// The plug-in's reply; without a plug-in, or when it fails, an "error" alone.
Dictionary ask(const Session& session, const char* plugin, const char* operation,
               const char* statusKey, const Dictionary& request) {
  try {
    Dictionary reply = session.daemon.call(plugin, operation, request);
    if (reply.integer(statusKey) == 0) return reply;
    const std::string error = textOf(reply, "error");
    return {{"error", error.empty() ? std::string(plugin) + " failed" : error}};
  } catch (const Failure& failed) {
    return {{"error", failed.what()}};
  }
}

ServedStates askServed(const Session& session, const Dictionary& request) {
  const Dictionary reply = ask(session, kPlugin, "getServed", "status", request);
  const Array* sharePoints = reply.array("sharePoints");
  if (sharePoints != nullptr) return {*sharePoints, {}};
  const std::string error = textOf(reply, "error");
  return {{}, error.empty() ? "the daemon's reply has no share points" : error};
}

bool isServed(const Dictionary& state) { return state.boolean("isServed").value_or(false); }

std::string unknownText(const ServedStates& states) {
  return "Whether it is served is not known: " + printable(states.error);
}

// The path of the share point that has the name under the key, another one than `own`.
std::string ownerOf(const Dictionary& reply, const char* key, const std::string& name,
                    const std::string& own) {
  const Array* list = reply.array(protocol::kSharePointList);
  if (list == nullptr) return {};
  for (const Value& one : *list) {
    const Dictionary* other = one.dictionary();
    if (other == nullptr || textOf(*other, "path") == own) continue;
    if (asciiLower(textOf(*other, key)) == asciiLower(name)) return textOf(*other, "path");
  }
  return {};
}

struct NewName {
  std::string wanted;
  std::string became;
  const char* key;
  std::string words;  // "record, SMB"
};

std::vector<NewName> newNames(const Dictionary& wanted, const Dictionary& result) {
  std::vector<NewName> names;
  for (const NameKey& name : kNames) {
    const std::string before = textOf(wanted, name.key);
    const std::string after = textOf(result, name.key);
    if (before.empty() || before == after || !isNumberedName(before, after)) continue;
    const auto same = std::find_if(names.begin(), names.end(), [&](const NewName& other) {
      return other.wanted == before && other.became == after;
    });
    if (same != names.end()) {
      same->words += std::string(", ") + name.word;
    } else {
      names.push_back({before, after, name.key, name.word});
    }
  }
  return names;
}

std::string stateWord(const Dictionary& state, const char* protocol) {
  const Dictionary* protocols = state.dictionary("protocols");
  const Dictionary* one = protocols != nullptr ? protocols->dictionary(protocol) : nullptr;
  const std::string word = one != nullptr ? textOf(*one, "state") : std::string();
  return word.empty() || word == "not shared" ? "-" : printable(word);
}

bool isAnyState(const Dictionary& state, std::string_view word) {
  return std::any_of(kProtocols.begin(), kProtocols.end(), [&](const NameKey& protocol) {
    return stateWord(state, protocol.key) == word;
  });
}

std::string stateTable(const ServedStates& states) {
  std::vector<std::vector<std::string>> rows{{"PATH", "FOLDER"}};
  for (const NameKey& protocol : kProtocols) rows[0].emplace_back(protocol.word);
  for (const Value& value : states.sharePoints) {
    if (value.dictionary() == nullptr) continue;
    const Dictionary& state = *value.dictionary();
    rows.push_back({printable(textOf(state, "path")), printable(textOf(state, "folder"))});
    for (const NameKey& protocol : kProtocols)
      rows.back().push_back(stateWord(state, protocol.key));
  }
  return formatTable(rows);
}

}  // namespace

void requireServable(const Session& session, const std::string& action, const Dictionary& record,
                     bool mayBeNumbered) {
  const std::string name = textOf(record, protocol::kNameOverSMB);
  const Dictionary* exported = record.dictionary(protocol::kNfsExportRecord);
  const Array* clients = exported != nullptr ? exported->array("clients") : nullptr;
  if (name.empty() && clients == nullptr) return;
  Dictionary request{{"path", textOf(record, "path")}, {"mayBeNumbered", mayBeNumbered}};
  if (!name.empty()) request.set(protocol::kNameOverSMB, name);
  if (clients != nullptr) request.set("clients", *clients);
  const Dictionary reply = ask(session, kPlugin, "checkShare", "status", request);
  const Array* refusals = reply.array("refusals");
  if (refusals == nullptr || refusals->empty()) return;
  std::string text;
  for (const Value& refusal : *refusals) {
    if (refusal.dictionary() == nullptr) continue;
    const Dictionary& one = *refusal.dictionary();
    text += (text.empty() ? action : "\n" + action) + ": " + textOf(one, "reason");
    if (const std::string advice = textOf(one, "advice"); !advice.empty()) text += "\n" + advice;
  }
  throw failure(text + "\nNothing was changed.");
}

void announceNewNames(const Session& session, const Dictionary& wanted, const Dictionary& result) {
  const std::vector<NewName> names = newNames(wanted, result);
  if (names.empty()) return;
  const Dictionary all = ask(session, kSharing, "getSharePointList", protocol::kReadStatus, {});
  for (const NewName& name : names) {
    const std::string owner = ownerOf(all, name.key, name.wanted, textOf(result, "path"));
    session.notes << "keelhouse: note: " << printable(name.wanted) << " was taken"
                  << (owner.empty() ? "" : " by " + printable(owner)) << ": "
                  << printable(name.became) << " (" << name.words << ")\n";
  }
}

ExitStatus reportServed(const Session& session, const std::string& path, bool required) {
  const ServedStates states = askServed(session, {{"paths", Array{path}}});
  const Dictionary* state =
      states.sharePoints.empty() ? nullptr : states.sharePoints.front().dictionary();
  if (state == nullptr) {
    session.notes << unknownText(states) << '\n';
  } else if (const std::string sentence = textOf(*state, "sentence"); !sentence.empty()) {
    session.notes << printable(sentence) << '\n';
  }
  const bool good = state != nullptr && isServed(*state);
  return good || !required ? ExitStatus::done : ExitStatus::notServed;
}

void reportStillServed(const Session& session, const std::string& path) {
  const ServedStates states = askServed(session, {{"paths", Array{path}}});
  if (states.sharePoints.empty() || states.sharePoints.front().dictionary() == nullptr) return;
  const Dictionary& state = *states.sharePoints.front().dictionary();
  const std::string sentence = textOf(state, "sentence");
  if (sentence.empty() || state.boolean(protocol::kIsShared).value_or(true)) return;
  const bool isStill = isAnyState(state, "served");
  // What is found and not served is what was wanted.
  if (!isStill && !isAnyState(state, "unknown")) return;
  session.notes << "keelhouse: note: "
                << (isStill ? printable(path) + " is served all the same: "
                            : "whether " + printable(path) + " is still served is not known: ")
                << printable(sentence) << '\n';
}

bool ServedStates::areGood() const {
  return error.empty() &&
         std::all_of(sharePoints.begin(), sharePoints.end(), [](const Value& state) {
           return state.dictionary() != nullptr && isServed(*state.dictionary());
         });
}

ServedStates askAllServed(const Session& session) { return askServed(session, {}); }

std::vector<std::vector<std::string>> servedRows(const ServedStates& states) {
  std::vector<std::vector<std::string>> rows;
  if (!states.error.empty())
    rows.push_back({"share points", "not known: " + printable(states.error)});
  for (const Value& value : states.sharePoints) {
    if (value.dictionary() == nullptr) continue;
    rows.push_back({"share " + printable(textOf(*value.dictionary(), "path")),
                    printable(textOf(*value.dictionary(), "sentence"))});
  }
  return rows;
}

ExitStatus listServedStates(const Session& session, bool required) {
  const ServedStates states = askAllServed(session);
  if (!states.error.empty()) throw failure("what is served is not known: " + states.error);
  if (session.json) {
    session.out << wire::writeJsonPretty(Value(states.sharePoints)) << '\n';
  } else if (states.sharePoints.empty()) {
    session.out << "No folder is shared.\n";
  } else {
    session.out << stateTable(states);
    for (const Value& value : states.sharePoints) {
      const Dictionary* state = value.dictionary();
      if (state == nullptr || isServed(*state)) continue;
      session.out << printable(textOf(*state, "path")) << ": "
                  << printable(textOf(*state, "sentence")) << '\n';
    }
  }
  return states.areGood() || !required ? ExitStatus::done : ExitStatus::notServed;
}

}  // namespace paddock::keelhouse
