// The client's precondition on the state that it changes (If-Match), and the entity tag of the
// state in the reply (ETag); see RFC 9110, sections 8.8.3 and 13.1.1.
//
// The host creates one for each request received over its socket; an operation finds it on the
// thread that runs it. A command sent by another plug-in has none: a precondition applies to the
// client's own request.
#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace paddock {

// Aborts an operation that has changed nothing, because the state is not the one that the client
// named. The host answers it with HTTP 412.
class PreconditionFailed : public std::runtime_error {
 public:
  explicit PreconditionFailed(const std::string& text);
  PreconditionFailed(const PreconditionFailed&) = default;
  PreconditionFailed& operator=(const PreconditionFailed&) = default;
  ~PreconditionFailed() override;
};

// Aborts an operation that has changed nothing, because another one keeps it waiting for too long.
// The text names that one. The host answers with HTTP 503.
class OperationBusy : public std::runtime_error {
 public:
  explicit OperationBusy(const std::string& text);
  OperationBusy(const OperationBusy&) = default;
  OperationBusy& operator=(const OperationBusy&) = default;
  ~OperationBusy() override;
};

class RequestConditions {
 public:
  // Computes the tag of a state; must be collision-resistant, also for chosen texts. Only
  // characters that an entity tag may hold.
  using Digest = std::function<std::string(std::string_view state)>;

  // `ifMatch`: the header's value, absent when the request has none.
  RequestConditions(std::optional<std::string> ifMatch, Digest digest);

  // Whether the client requires a certain state for its change.
  bool hasIfMatch() const { return ifMatch_.has_value(); }

  // Throws PreconditionFailed unless the client accepts the current state: without a header any,
  // with "*" any but that there is nothing (`exists`), else one whose tag is in its list. `state`:
  // a text that represents all of it; absent: a state without a tag. A tag that is weak, or a list
  // that cannot be read, names no state.
  void require(const std::optional<std::string>& state, bool exists) const;

  // The state that the reply represents; absent: one without a tag.
  void setReplyState(const std::optional<std::string>& state);
  // The reply's ETag, in its quotes; empty without one.
  const std::string& replyTag() const { return replyTag_; }

 private:
  std::string tagOf(std::string_view state) const;

  std::optional<std::string> ifMatch_;
  Digest digest_;
  std::string replyTag_;
};

// The conditions of the request that this thread serves; null when there are none.
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
