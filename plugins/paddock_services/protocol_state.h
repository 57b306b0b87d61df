// The state of one share point over one protocol, and its description.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/value.h"
#include "platform/program_runner.h"

namespace paddock {

struct ProtocolState {
  enum class Kind {
    notShared,  // nothing was to be published, and nothing is
    served,     // clients with access find it
    notServed,  // `reason` says why
    unknown,    // `reason` says why it could not be determined
    kept,       // a name is kept for a protocol that no server of this system speaks
  };

  Kind kind = Kind::notShared;
  std::string as;      // the name or the clients; with what else is to be known in brackets
  std::string reason;  // the end of a sentence, without a full stop
  std::string advice;  // a command, or what to change; may be empty

  static ProtocolState served(std::string as) { return {Kind::served, std::move(as), {}, {}}; }
  static ProtocolState notServed(std::string reason, std::string advice = {}) {
    return {Kind::notServed, {}, std::move(reason), std::move(advice)};
  }
  static ProtocolState unknown(std::string reason, std::string advice = {}) {
    return {Kind::unknown, {}, std::move(reason), std::move(advice)};
  }
  static ProtocolState kept(std::string as, std::string reason) {
    return {Kind::kept, std::move(as), std::move(reason), {}};
  }
  friend bool operator==(const ProtocolState&, const ProtocolState&) = default;
};

// "served", "not served", "unknown", "kept", "not shared".
const char* wordFor(ProtocolState::Kind kind);

// {"state", "as", "reason", "advice"}, without the empty ones.
Dictionary dictionaryOf(const ProtocolState& state);

struct NamedState {
  std::string protocol;  // "SMB"
  ProtocolState state;
};

// One text of them, in their order: what is served first, then what is not, then what is not known,
// and the protocols for which names are only kept; empty when nothing is shared. "Shared over SMB
// as Photos, NFS: not served: nfs-server is stopped (systemctl start nfs-server)".
std::string sentenceOf(const std::vector<NamedState>& states);

// Runs a program that is queried and waits for it: its path in the system, its arguments.
using AskProgram =
    std::function<ProgramOutcome(const std::string& path, const std::vector<std::string>&)>;

// The environment that is queried.
struct AskedWorld {
  std::string root;          // the tree that the daemon belongs to; empty: the system itself
  Dictionary configuration;  // the daemon's
  AskProgram ask;

  bool isOwnTree() const { return !root.empty(); }
  std::string path(const std::string& below) const { return root + below; }
};

// Why nothing is known of a server: a tree of its own has no servers but those whose programs are
// below it.
ProtocolState unknownToTree(const AskedWorld& world);

}  // namespace paddock
