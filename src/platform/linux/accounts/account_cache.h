// Answers about users and groups, kept as long as they are known to hold.
//
// An answer holds until one of the files changes that say who is who, and for `kLifetime` at most,
// because not everything that does is a file. While a file has changed so recently that another
// change might not show in its times, nothing is kept.
#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/clock.h"

namespace paddock {

// What stat(2) says of the files.
struct AccountFilesStamp {
  struct File {
    unsigned long device = 0;
    unsigned long inode = 0;
    long long size = -1;  // of a file that is missing
    long long changed = 0;
    friend bool operator==(const File&, const File&) = default;
  };
  std::vector<File> files;
  // Whether every further change is going to show.
  bool isSettled = false;
};

class AccountFiles {
 public:
  // For how long a change may have the time of the one before it: more than a tick of any kernel.
  static constexpr std::chrono::milliseconds kTick{50};

  // /etc/passwd and the others that the name service reads, and `more`: the directory's database.
  static std::vector<std::string> usual(std::vector<std::string> more);

  // The caller keeps the clock alive.
  AccountFiles(Clock& clock, std::vector<std::string> paths)
      : clock_(clock), paths_(std::move(paths)) {}

  AccountFilesStamp stamp() const;
  Clock& clock() const { return clock_; }

  // While one lives, its thread looks at the files once: for work that asks about several accounts
  // and takes no longer than one question. They do not nest.
  class Moment {
   public:
    // Null: nothing is different.
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
  // How many answers are kept; the next one drops them all.
  static constexpr std::size_t kCapacity = 16384;

  // The caller keeps the files alive.
  explicit AccountCache(const AccountFiles& files) : files_(files) {}

  // The answer that is kept, or what `ask` returns: an errno, and the answer through its argument.
  // 0 and ENOENT are kept, the latter with the answer as it then is. Any thread may call.
  template <typename Ask>
  int get(const Key& key, Answer& answer, Ask ask) {
    const AccountFilesStamp stamp = files_.stamp();
    if (!stamp.isSettled) return ask(answer);
    Kept kept;
    if (find(key, stamp, kept)) {
      answer = kept.answer;
      return kept.error;
    }
    kept.error = ask(answer);
    kept.answer = answer;
    keep(key, stamp, kept);
    return kept.error;
  }

 private:
  struct Kept {
    int error = 0;
    Answer answer{};
  };

  bool find(const Key& key, const AccountFilesStamp& stamp, Kept& kept) {
    const auto now = files_.clock().monotonicNow();
    const std::lock_guard lock(mutex_);
    if (stamp_.files != stamp.files || now >= end_) {
      answers_.clear();
      stamp_ = stamp;
      end_ = now + kLifetime;
    }
    const auto found = answers_.find(key);
    if (found == answers_.end()) return false;
    kept = found->second;
    return true;
  }

  // Unless the files have changed since they were looked at: then the answer may be of either time.
  void keep(const Key& key, const AccountFilesStamp& stamp, const Kept& kept) {
    if (kept.error != 0 && kept.error != ENOENT) return;
    const std::lock_guard lock(mutex_);
    if (stamp_.files != stamp.files) return;
    if (answers_.size() >= kCapacity) answers_.clear();
    answers_[key] = kept;
  }

  const AccountFiles& files_;
  std::mutex mutex_;
  AccountFilesStamp stamp_;
  std::chrono::steady_clock::time_point end_;
  std::map<Key, Kept> answers_;
};

}  // namespace paddock
