// The progress of a run, collected from its threads.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "base/number_set.h"
#include "base/value.h"

namespace paddock::copyprivs {

// Paths for a status file.

// How much of a property list a path may take.
inline constexpr std::size_t kLongestPath = 4096;

// The path, with "..." in place of its middle when it would take more than that.
std::string shortPath(const std::string& path);

class RunReport {
 public:
  // How many errors and examples are kept.
  static constexpr std::size_t kKept = 100;
  // The failed objects that are recognised when they fail again in a later round.
  static constexpr std::size_t kKnown = 65'536;

  // Counts of one thread, added periodically.
  struct Counts {
    std::uint64_t found = 0;  // objects that are known to be there
    std::uint64_t done = 0;
    std::uint64_t changed = 0;
    std::uint64_t leftOut = 0;  // of those that are done
    double share = 0;           // of the whole tree that is done, as an estimate
  };
  // Adds the counts, and sets them to 0.
  void add(Counts& counts);
  // `path` as bytes. False when the object is counted already; an object of which that cannot be
  // known any more is counted in the first round alone.
  bool addError(const std::string& path, const std::string& error);
  // Another round begins, in which objects are met that were met before.
  void beginRepetition() { isRepeating_ = true; }
  // Whether `addExample` is still of use.
  bool wantsExamples() const { return exampleCount_.load(std::memory_order_relaxed) < kKept; }
  // `changes` of Plan's.
  void addExample(const std::string& path, unsigned changes);

  std::uint64_t errorCount() const { return errorCount_; }
  std::uint64_t leftOut() const { return leftOut_; }
  // Adds "itemsDone", "itemsTotal", "itemsChanged", "errorCount", "errors" and, for a dry run,
  // "examples". Until the run has ended, the total is what the part that is done makes of the
  // whole.
  void fill(Dictionary& status, bool isEnded, bool dryRun) const;

 private:
  std::uint64_t estimatedTotal(std::uint64_t done) const;

  std::atomic<std::uint64_t> found_ = 0;
  std::atomic<std::uint64_t> done_ = 0;
  std::atomic<std::uint64_t> changed_ = 0;
  std::atomic<std::uint64_t> leftOut_ = 0;
  std::atomic<double> share_ = 0;
  std::atomic<std::uint64_t> errorCount_ = 0;
  std::atomic<std::size_t> exampleCount_ = 0;
  std::atomic<bool> isRepeating_ = false;
  mutable Mutex mutex_;
  NumberSet<std::uint64_t> failed_ PADDOCK_GUARDED_BY(mutex_);  // hashes of paths
  Array errors_ PADDOCK_GUARDED_BY(mutex_);
  Array examples_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock::copyprivs
