#include "paddock_services/protocol_state.h"

#include <algorithm>

#include "base/text.h"

namespace paddock {

namespace {

using Kind = ProtocolState::Kind;

std::string withAdvice(const ProtocolState& state) {
  return state.advice.empty() ? state.reason : state.reason + " (" + state.advice + ")";
}

// "a, b and c".
std::string enumeration(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t at = 0; at < words.size(); ++at) {
    if (at > 0) text += at + 1 == words.size() ? " and " : ", ";
    text += words[at];
  }
  return text;
}

std::string servedText(const NamedState& one) {
  if (one.state.as.empty()) return one.protocol;
  const bool toClients = one.protocol == "NFS";
  return one.protocol + (toClients ? " to " : " as ") + one.state.as;
}

void append(std::string& text, const std::string& part) {
  if (!text.empty()) text += ", ";
  text += part;
}

// Protocols whose states say the same are named together.
void appendUnknown(std::string& text, const std::vector<NamedState>& states) {
  std::vector<std::string> said;
  for (const NamedState& one : states) {
    if (one.state.kind != Kind::unknown) continue;
    const std::string why = withAdvice(one.state);
    if (std::find(said.begin(), said.end(), why) != said.end()) continue;
    said.push_back(why);
    std::vector<std::string> protocols;
    for (const NamedState& other : states) {
      if (other.state.kind == Kind::unknown && withAdvice(other.state) == why)
        protocols.push_back(other.protocol);
    }
    append(text, enumeration(protocols) + ": not known: " + why);
  }
}

std::string keptText(const std::vector<NamedState>& states) {
  std::vector<std::string> protocols;
  for (const NamedState& one : states) {
    if (one.state.kind == Kind::kept) protocols.push_back(one.protocol);
  }
  if (protocols.empty()) return {};
  const bool several = protocols.size() > 1;
  return std::string(several ? "Its names over " : "Its name over ") + enumeration(protocols) +
         (several ? " are" : " is") + " kept, and no server of this system publishes " +
         (several ? "them" : "it");
}

}  // namespace

const char* wordFor(Kind kind) {
  switch (kind) {
    case Kind::served:
      return "served";
    case Kind::notServed:
      return "not served";
    case Kind::unknown:
      return "unknown";
    case Kind::kept:
      return "kept";
    case Kind::notShared:
      break;
  }
  return "not shared";
}

Dictionary dictionaryOf(const ProtocolState& state) {
  Dictionary result{{"state", wordFor(state.kind)}};
  if (!state.as.empty()) result.set("as", state.as);
  if (!state.reason.empty()) result.set("reason", state.reason);
  if (!state.advice.empty()) result.set("advice", state.advice);
  return result;
}

std::string sentenceOf(const std::vector<NamedState>& states) {
  std::string text;
  for (const NamedState& one : states) {
    if (one.state.kind == Kind::served) append(text, servedText(one));
  }
  if (!text.empty()) text.insert(0, "Shared over ");
  for (const NamedState& one : states) {
    if (one.state.kind == Kind::notServed)
      append(text, one.protocol + ": not served: " + withAdvice(one.state));
  }
  appendUnknown(text, states);
  const std::string kept = keptText(states);
  if (text.empty() || kept.empty()) return text + kept;
  return text + ". " + kept;
}

ProtocolState unknownToTree(const AskedWorld& world) {
  return ProtocolState::unknown(printable(world.root) + " is a tree of its own, without servers");
}

}  // namespace paddock
