// What holds for a while: one value, and answers by their keys.
//
// Both are told the time, by a clock that never goes back, and neither is thread-safe: the lock of
// the object that has one guards it (PADDOCK_GUARDED_BY). Neither asks for an answer itself, so
// that its owner decides whether the lock is held for as long as that takes.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

namespace paddock {

using SteadyTime = std::chrono::steady_clock::time_point;

template <typename Value>
class TimedValue {
 public:
  // Replaces what is kept; it holds until `end`, which is no longer of its time.
  const Value& keep(Value value, SteadyTime end) {
    end_ = end;
    return value_.emplace(std::move(value));
  }
  // Null when nothing is kept, or what is has ceased to hold. Valid until the next `keep`.
  const Value* find(SteadyTime now) const { return value_ && now < end_ ? &*value_ : nullptr; }

 private:
  std::optional<Value> value_;
  SteadyTime end_;
};

// Answers by key, each for the same time from when it was asked for. Bounded: the answer that is
// one too many drops those that have ceased to hold, and when more than half are left all of them.
template <typename Key, typename Answer, template <typename...> class Map = std::map>
class TimedCache {
 public:
  TimedCache(std::chrono::steady_clock::duration lifetime, std::size_t capacity)
      : lifetime_(lifetime), capacity_(capacity) {}

  // Null when the answer is not kept, or has ceased to hold. Valid until the next call.
  const Answer* find(const Key& key, SteadyTime now) {
    if (now >= lastEnd_) clear();
    const auto found = answers_.find(key);
    return found != answers_.end() ? found->second.find(now) : nullptr;
  }

  // `asked`: from when on the answer holds; not after now.
  void keep(const Key& key, Answer answer, SteadyTime asked) {
    if (answers_.size() >= capacity_) makeRoom(asked);
    const SteadyTime end = asked + lifetime_;
    if (lastEnd_ < end) lastEnd_ = end;
    answers_[key].keep(std::move(answer), end);
  }

  void clear() { answers_.clear(); }

 private:
  void makeRoom(SteadyTime now) {
    std::erase_if(answers_, [now](const auto& one) { return one.second.find(now) == nullptr; });
    if (answers_.size() > capacity_ / 2) clear();
  }

  std::chrono::steady_clock::duration lifetime_;
  std::size_t capacity_;
  Map<Key, TimedValue<Answer>> answers_;
  // Nothing that is kept holds longer.
  SteadyTime lastEnd_ = SteadyTime::min();
};

}  // namespace paddock
