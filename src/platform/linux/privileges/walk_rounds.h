// What moves inside a tree while it is walked.
//
// A walk misses what is moved from a folder that it has not come to into one that it has been in.
// So it notes where entries came or went before it had left a folder: where that happened nowhere,
// nothing was missed, for what moves must leave a folder. Otherwise another round looks at the
// folders, for those that the rounds before have not been in, and at the entries of those that
// changed. The number of rounds is bounded; what still changes in the last one stays unknown.
//
// A folder's mtime says when entries came and went. Setting privileges leaves it alone, which a
// walk does that sets them. Its owner can set it back, but no ctime: that one counts too as long as
// the walk itself has not changed it. (Who wants to keep a folder from a walk can as well take it
// out of the tree, and put it back afterwards.)
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "base/mutex.h"
#include "base/number_set.h"
#include "platform/linux/privileges/object_status.h"

namespace paddock {

// The folders that a walk has been in, up to a number: 8 to 16 bytes for each. Thread-safe.
class VisitedFolders {
 public:
  static constexpr std::size_t kMost = 262'144;

  explicit VisitedFolders(std::size_t most = kMost) : most_(most) {}

  // False when the folder was there. One beyond the number is not kept.
  bool add(const ObjectStatus& folder);
  bool has(const ObjectStatus& folder) const;
  // Whether all that were added are kept.
  bool isComplete() const { return isComplete_; }

 private:
  // Sharded, to reduce lock contention.
  struct Part {
    mutable Mutex mutex;
    NumberSet<std::uint64_t> folders PADDOCK_GUARDED_BY(mutex);
  };
  const Part& partOf(std::uint64_t key) const { return parts_[key % parts_.size()]; }

  const std::size_t most_;
  std::array<Part, 16> parts_;
  std::atomic<std::size_t> count_ = 0;
  std::atomic<bool> isComplete_ = true;
};

// The rounds of one walk. `begin` and `goOn` are for one thread, between rounds; the rest for any.
class WalkRounds {
 public:
  static constexpr unsigned kMost = 5;
  static constexpr std::chrono::milliseconds kPause{20};

  // The first pause between two rounds; each is twice as long as the one before. On a file system
  // that keeps no fractions of seconds they are as long as it takes to tell its times apart.
  explicit WalkRounds(std::chrono::milliseconds pause = kPause,
                      std::size_t mostFolders = VisitedFolders::kMost)
      : pause_(pause), visited_(mostFolders) {}

  void begin();
  bool isFirst() const { return number_ == 1; }
  bool isLast() const { return number_ == kMost; }
  // Whether a change that left this time may be one since the round began, or the one before it.
  bool isOfThisRound(const FileTime& time) const { return mayBeSince(time, start_); }
  bool isOfTheOneBefore(const FileTime& time) const { return mayBeSince(time, startBefore_); }
  // Entries came or went, before their folder was left; `time` is its ctime.
  void noteChange(const FileTime& time);
  // Whether they did is not known.
  void noteChange() { isDisturbed_ = true; }
  bool isDisturbed() const { return isDisturbed_; }
  // Whether another round is to be walked, after a pause. False also when `stop` becomes true.
  bool goOn(const std::atomic<bool>& stop) const;

  VisitedFolders& visited() { return visited_; }
  const VisitedFolders& visited() const { return visited_; }

  static bool mayBeSince(const FileTime& time, const FileTime& start);

 private:
  const std::chrono::milliseconds pause_;
  VisitedFolders visited_;
  unsigned number_ = 0;
  FileTime start_;
  FileTime startBefore_;
  std::atomic<bool> isDisturbed_ = false;
  std::atomic<bool> isCoarse_ = false;
};

}  // namespace paddock
