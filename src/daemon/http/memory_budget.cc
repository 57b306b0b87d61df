#include "daemon/http/memory_budget.h"

namespace paddock {

void MemoryBudget::change(std::size_t bytes) {
  const MutexLock lock(mutex_);
  bytes_ = bytes;
}

bool MemoryBudget::take(std::size_t bytes, Rights rights) {
  const MutexLock lock(mutex_);
  const auto fits = [bytes](std::size_t taken, std::size_t limit) {
    return taken <= limit && bytes <= limit - taken;
  };
  const bool all = rights == Rights::everything;
  if (!fits(taken_, bytes_) || (!all && !fits(takenByViewers_, bytes_ / 2))) return false;
  taken_ += bytes;
  if (!all) takenByViewers_ += bytes;
  return true;
}

void MemoryBudget::takeAnyway(std::size_t bytes, Rights rights) {
  const MutexLock lock(mutex_);
  taken_ += bytes;
  if (rights != Rights::everything) takenByViewers_ += bytes;
}

void MemoryBudget::giveBack(std::size_t bytes, Rights rights) {
  const MutexLock lock(mutex_);
  taken_ -= bytes;
  if (rights != Rights::everything) takenByViewers_ -= bytes;
}

bool MemoryShare::take(std::size_t bytes) {
  if (!always_ && !budget_.take(bytes, rights_)) return false;
  if (always_) budget_.takeAnyway(bytes, rights_);
  taken_ += bytes;
  return true;
}

void MemoryShare::takeAnyway(std::size_t bytes) {
  budget_.takeAnyway(bytes, rights_);
  taken_ += bytes;
}

void MemoryShare::giveBack(std::size_t bytes) {
  budget_.giveBack(bytes, rights_);
  taken_ -= bytes;
}

}  // namespace paddock
