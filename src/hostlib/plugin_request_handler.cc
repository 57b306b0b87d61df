#include <utility>

#include "paddock/plugin_request_handler.h"

namespace paddock {

Value Context::get(const std::string& key) const {
  const MutexLock lock(mutex_);
  const Value* value = contents_.find(key);
  return value != nullptr ? *value : Value();
}

void Context::set(const std::string& key, Value value) {
  const MutexLock lock(mutex_);
  contents_.set(key, std::move(value));
}

void Context::remove(const std::string& key) {
  const MutexLock lock(mutex_);
  contents_.erase(key);
}

Dictionary Context::snapshot() const {
  const MutexLock lock(mutex_);
  return contents_;
}

void Context::replace(Dictionary contents) {
  const MutexLock lock(mutex_);
  contents_ = std::move(contents);
}

std::optional<Dictionary> Context::takeDirty() {
  const MutexLock lock(mutex_);
  if (!contents_.boolean(kDirtyKey).value_or(false)) return std::nullopt;
  contents_.erase(kDirtyKey);
  return contents_;
}

PluginRequestHandler::~PluginRequestHandler() = default;

PluginRequestHandler* PluginRequestHandler::init() { return this; }

std::int64_t PluginRequestHandler::doIdleAtCount(std::uint64_t /*count*/) { return 0; }

Value PluginRequestHandler::startServiceWithVariant(const Value& /*variant*/) { return {}; }
Value PluginRequestHandler::stopServiceWithVariant(const Value& /*variant*/) { return {}; }
Value PluginRequestHandler::recycleServiceWithVariant(const Value& /*variant*/) { return {}; }

}  // namespace paddock
