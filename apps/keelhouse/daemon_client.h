// Asks the daemon: HTTP over its Unix socket.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"

namespace paddock::keelhouse {

// A reply, and the tag of the state that it tells of; empty when the daemon named none.
struct TaggedReply {
  Dictionary body;
  std::string tag;
};

// One question at a time; every operation throws Failure: `unreachable` when nobody answers on the
// socket, `failed` with the daemon's text for an HTTP status other than 200 or a reply that is no
// dictionary. A reply is waited for as long as it takes; connecting is given up after 10 seconds.
class DaemonClient {
 public:
  explicit DaemonClient(std::string socketPath) : socketPath_(std::move(socketPath)) {}

  const std::string& socketPath() const { return socketPath_; }

  // The reply of a plug-in's operation. `json` is the request as JSON text.
  Dictionary post(std::string_view plugin, std::string_view operation, std::string_view json) const;
  Dictionary call(std::string_view plugin, std::string_view operation,
                  const Dictionary& request) const;
  // The same with the reply's tag. With a tag of its own the request is for that state alone:
  // absent when the present one is another, and then nothing was changed.
  std::optional<TaggedReply> callTagged(std::string_view plugin, std::string_view operation,
                                        const Dictionary& request,
                                        const std::string& tag = {}) const;
  // GET of "/v1/health" and the like.
  Dictionary get(const std::string& path) const;

 private:
  std::optional<TaggedReply> send(std::string_view plugin, std::string_view operation,
                                  std::string_view json, const std::string& tag) const;

  std::string socketPath_;
};

}  // namespace paddock::keelhouse
