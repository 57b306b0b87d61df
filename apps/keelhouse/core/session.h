// The context of a command.
#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

// Sends requests to the daemon: HTTP over its Unix socket.

// A reply, and the tag of the state that it describes; empty when the daemon sent none.
struct TaggedReply {
  Dictionary body;
  std::string tag;
};

// A line of a request's log. `level`: "error", "warning", "info" or "debug"; `time`: RFC 3339.
struct LogLine {
  std::string time;
  std::string level;
  std::string text;
};

// One request at a time; every operation throws Failure: `unreachable` when the daemon does not
// respond on the socket, Refusal with the daemon's text for an HTTP status other than 200, `failed`
// for a reply that is no dictionary. A reply is waited for as long as it takes; connecting is given
// up after 10 seconds.
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

  // The id of the last request of `post`, `call` and `get` that was answered, whatever the answer;
  // empty before the first one.
  const std::string& lastRequestId() const { return lastRequestId_; }
  // Those of `call` and `callTagged` that changed something, in their order: the operation may
  // change something, and it was not refused.
  const std::vector<std::string>& changeIds() const { return changeIds_; }
  // Those of all replies.
  const ForeignLineBreaks& lineBreaks() const { return lineBreaks_; }
  // While one exists, requests are not counted among these: requests that undo a change or read its
  // outcome, when an earlier one is the one to be explained.
  class Aside {
   public:
    explicit Aside(const DaemonClient& daemon)
        : daemon_(daemon), kept_(daemon.lastRequestId_), changes_(daemon.changeIds_.size()) {}
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;
    ~Aside() {
      daemon_.lastRequestId_ = kept_;
      daemon_.changeIds_.resize(changes_);
    }

   private:
    const DaemonClient& daemon_;
    const std::string kept_;
    const std::size_t changes_;
  };
  // What the daemon logged for a request of this user; it keeps those of the last 1,000 requests.
  std::vector<LogLine> requestLog(const std::string& id) const;

 private:
  std::optional<TaggedReply> send(std::string_view plugin, std::string_view operation,
                                  std::string_view json, const std::string& tag) const;

  Dictionary fetch(const std::string& path, std::string& requestId) const;

  std::string socketPath_;
  mutable std::string lastRequestId_;
  mutable std::vector<std::string> changeIds_;
  mutable ForeignLineBreaks lineBreaks_;
};

// Makes a change on the condition that there is no concurrent one, and repeats it until there is
// none. `attempt` gets its number, from 0, and returns whether the change was made. Throws Failure,
// beginning with `action`, when concurrent changes do not cease.
void repeatUntilUndisturbed(const std::string& action,
                            const std::function<bool(int number)>& attempt);

struct Session {
  const DaemonClient& daemon;
  std::ostream& out;
  std::ostream& notes;    // additional notes for the user; standard error
  bool json = false;      // raw values instead of text for people
  std::string root = {};  // of the tree that the daemon belongs to; empty: the system
  bool terminal = false;  // whether `out` is one
};

}  // namespace paddock::keelhouse
