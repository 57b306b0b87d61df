// What the client of a request says of the state that it wants to change (If-Match), and what is
// said to it of the state that it was answered (ETag); see RFC 9110, sections 8.8.3 and 13.1.1.
//
// The host makes one for each request that came over its socket, and an operation finds it on the
// thread that runs it. A command that another plug-in sends has none: what a client says is about
// its own request.
#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace paddock {

// Ends an operation that has changed nothing, because the state is another one than the client
// named. The host answers it with HTTP 412.
class PreconditionFailed : public std::runtime_error {
 public:
  explicit PreconditionFailed(const std::string& text);
  PreconditionFailed(const PreconditionFailed&) = default;
  PreconditionFailed& operator=(const PreconditionFailed&) = default;
  ~PreconditionFailed() override;
};

class RequestConditions {
 public:
  // Makes the tag of a state: texts that differ must not have one tag, whoever chooses them. Only
  // characters that an entity tag may hold.
  using Digest = std::function<std::string(std::string_view state)>;

  // `ifMatch`: the header's value, absent when the request has none.
  RequestConditions(std::optional<std::string> ifMatch, Digest digest);

  // Whether the client wants its change in a certain state alone.
  bool hasIfMatch() const { return ifMatch_.has_value(); }

  // Throws PreconditionFailed unless the client takes the present state: without a header any, with
  // "*" any but that there is nothing (`exists`), else one whose tag is in its list. `state`: a
  // text that stands for all of it; absent: one that has no tag. A tag that is weak, or a list that
  // cannot be read, names no state.
  void require(const std::optional<std::string>& state, bool exists) const;

  // Which state the reply tells; absent: none that could be named.
  void setReplyState(const std::optional<std::string>& state);
  // The reply's ETag, in its quotes; empty without one.
  const std::string& replyTag() const { return replyTag_; }

 private:
  std::string tagOf(std::string_view state) const;

  std::optional<std::string> ifMatch_;
  Digest digest_;
  std::string replyTag_;
};

// Those of the request that this thread serves; null when there are none.
RequestConditions* currentRequestConditions();

// Makes `conditions` (which may be null) the thread's for its own lifetime.
class RequestConditionsScope {
 public:
  explicit RequestConditionsScope(RequestConditions* conditions);
  RequestConditionsScope(const RequestConditionsScope&) = delete;
  RequestConditionsScope& operator=(const RequestConditionsScope&) = delete;
  ~RequestConditionsScope();

 private:
  RequestConditions* previous_;
};

}  // namespace paddock
