// The base of every plug-in's request handler.
//
// Life cycle. The host constructs the handler, calls `init` once, replaces the context with the
// saved one, and from then on calls requests and idle ticks until it destroys the handler after the
// last running request. The host calls `performOperation` from several threads concurrently; a
// handler does its own locking. Idle ticks come from one thread of the host, once a second,
// numbered from 1, and may overlap requests.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "base/value.h"

namespace paddock {

// The dictionary that the host keeps for one plug-in across requests and restarts.
//
// Every operation is thread-safe and atomic by itself (an internal lock); a sequence of calls is
// not atomic.
//
// Setting the key "contextDirty" to true asks the host to save the context. The host saves it
// without that key and then clears it.
class Context {
 public:
  static constexpr const char* kDirtyKey = "contextDirty";

  // Returns a copy of the value, or null when there is none.
  Value get(const std::string& key) const;
  // A null value removes the key.
  void set(const std::string& key, Value value);
  void remove(const std::string& key);

  // A copy of the whole dictionary.
  Dictionary snapshot() const;
  // Replaces the whole dictionary.
  void replace(Dictionary contents);

  // When "contextDirty" reads as true: clears it and returns a copy without it; otherwise nullopt.
  // A host that then fails to save sets the key again.
  std::optional<Dictionary> takeDirty();

 private:
  mutable Mutex mutex_;
  Dictionary contents_ PADDOCK_GUARDED_BY(mutex_);
};

class PluginRequestHandler {
 public:
  struct Operation {
    std::string name;     // as on the wire: without "WithRequest"
    bool changes = true;  // false: members of the viewing group may call it, and it is not audited
  };

  PluginRequestHandler() = default;
  PluginRequestHandler(const PluginRequestHandler&) = delete;
  PluginRequestHandler& operator=(const PluginRequestHandler&) = delete;
  virtual ~PluginRequestHandler();

  // Base initialiser; returns the receiver.
  virtual PluginRequestHandler* init();

  // Every operation that `performOperation` knows; the same list at every call.
  virtual std::vector<Operation> operations() const = 0;

  // Runs one of `operations()` and returns its reply, owned by the caller. Precondition: `name` is
  // one of them; std::invalid_argument otherwise. Exceptions of the operation propagate.
  virtual Dictionary performOperation(std::string_view name, const Dictionary& request) = 0;

  virtual std::int64_t doIdleAtCount(std::uint64_t count);

  virtual Value startServiceWithVariant(const Value& variant);
  virtual Value stopServiceWithVariant(const Value& variant);
  virtual Value recycleServiceWithVariant(const Value& variant);

  Context& context() { return context_; }

 private:
  Context context_;
};

}  // namespace paddock
