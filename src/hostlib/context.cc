#include "paddock/context.h"

#include <utility>

namespace paddock {

Value Context::get(const std::string& key) const {
  const std::scoped_lock lock(mutex_);
  const Value* value = contents_.find(key);
  return value != nullptr ? *value : Value();
}

void Context::set(const std::string& key, Value value) {
  const std::scoped_lock lock(mutex_);
  contents_.set(key, std::move(value));
}

void Context::remove(const std::string& key) {
  const std::scoped_lock lock(mutex_);
  contents_.erase(key);
}

Dictionary Context::snapshot() const {
  const std::scoped_lock lock(mutex_);
  return contents_;
}

void Context::replace(Dictionary contents) {
  const std::scoped_lock lock(mutex_);
  contents_ = std::move(contents);
}

std::optional<Dictionary> Context::takeDirty() {
  const std::scoped_lock lock(mutex_);
  if (!contents_.boolean(kDirtyKey).value_or(false)) return std::nullopt;
  contents_.erase(kDirtyKey);
  return contents_;
}

}  // namespace paddock
