// The base of every plug-in's request handler.
//
// Life cycle. The host constructs the handler, calls `init` once, replaces the context with the
// saved one, and from then on calls requests and idle ticks until it destroys the handler after
// the last running request. The host calls `performOperation` from several threads at the same
// time; a handler does its own locking. Idle ticks come from one thread of the host, once a
// second, numbered from 1, and may overlap requests.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"
#include "paddock/context.h"

namespace paddock {

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

  // The base initialiser; returns the receiver.
  virtual PluginRequestHandler* init();

  // Every operation that `performOperation` knows; the same list at every call.
  virtual std::vector<Operation> operations() const = 0;

  // Runs one of `operations()` and returns its reply, owned by the caller. Precondition: `name`
  // is one of them; std::invalid_argument otherwise. What an operation throws leaves here.
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
