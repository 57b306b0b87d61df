// Cache of user and group lookups, valid as long as they are known to hold.
//
// An entry is valid until one of the account files changes, and for `kLifetime` at most, because
// not every source is a file. While a file has changed so recently that another change might not
// show in its times, nothing is cached.
#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "base/timed_cache.h"
#include "platform/machine_information.h"

namespace paddock {

// stat(2) results of the files.
struct AccountFilesStamp {
  struct File {
    unsigned long device = 0;
    unsigned long inode = 0;
    long long size = -1;  // of a file that is missing
    long long changed = 0;
    friend bool operator==(const File&, const File&) = default;
  };
  std::vector<File> files;
  // Whether any further change will be visible.
  bool isSettled = false;
};

class AccountFiles {
 public:
  // How long a change may have the same timestamp as the previous one: more than a tick of any
  // kernel.
  static constexpr std::chrono::milliseconds kTick{50};

  // /etc/passwd and the others that the name service reads, and `more`: the directory's database.
  static std::vector<std::string> usual(std::vector<std::string> more);

  // The clock must outlive this object.
  AccountFiles(Clock& clock, std::vector<std::string> paths)
      : clock_(clock), paths_(std::move(paths)) {}

  AccountFilesStamp stamp() const;
  Clock& clock() const { return clock_; }

  // While one lives, its thread stats the files once: for operations that look up several accounts
  // and take no longer than one lookup. They do not nest.
  class Moment {
   public:
    // Null: no effect.
    explicit Moment(const AccountFiles* files);
    Moment(const Moment&) = delete;
    Moment& operator=(const Moment&) = delete;
    ~Moment();

   private:
    friend class AccountFiles;
    const AccountFiles* files_;
    std::optional<AccountFilesStamp> stamp_;
  };

 private:
  AccountFilesStamp look() const;

  Clock& clock_;
  const std::vector<std::string> paths_;
};

template <typename Key, typename Answer>
class AccountCache {
 public:
  static constexpr std::chrono::seconds kLifetime{2};
  // Maximum number of entries.
  static constexpr std::size_t kCapacity = 16384;

  // The files must outlive this object.
  explicit AccountCache(const AccountFiles& files) : files_(files) {}

  // The cached answer, or the result of `ask`: an errno, and the answer through its argument. 0 and
  // ENOENT are cached, the latter with the answer as it then is. Thread-safe.
  template <typename Ask>
  int get(const Key& key, Answer& answer, Ask ask) {
    const AccountFilesStamp stamp = files_.stamp();
    if (!stamp.isSettled) return ask(answer);
    const SteadyTime asked = files_.clock().monotonicNow();
    Kept kept;
    if (find(key, stamp, asked, kept)) {
      answer = kept.answer;
      return kept.error;
    }
    kept.error = ask(answer);
    kept.answer = answer;
    keep(key, stamp, asked, kept);
    return kept.error;
  }

 private:
  struct Kept {
    int error = 0;
    Answer answer{};
  };

  bool find(const Key& key, const AccountFilesStamp& stamp, SteadyTime now, Kept& kept)
      PADDOCK_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (stamp_.files != stamp.files) {
      answers_.clear();
      stamp_ = stamp;
    }
    const Kept* found = answers_.find(key, now);
    if (found != nullptr) kept = *found;
    return found != nullptr;
  }

  // Unless the files have changed since the stamp: then the answer may be of either state.
  void keep(const Key& key, const AccountFilesStamp& stamp, SteadyTime asked, const Kept& kept)
      PADDOCK_EXCLUDES(mutex_) {
    if (kept.error != 0 && kept.error != ENOENT) return;
    const MutexLock lock(mutex_);
    if (stamp_.files == stamp.files) answers_.keep(key, kept, asked);
  }

  const AccountFiles& files_;
  Mutex mutex_;
  AccountFilesStamp stamp_ PADDOCK_GUARDED_BY(mutex_);
  TimedCache<Key, Kept> answers_ PADDOCK_GUARDED_BY(mutex_){kLifetime, kCapacity};
};

}  // namespace paddock
