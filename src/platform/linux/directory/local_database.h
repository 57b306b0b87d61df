// The one long-lived connection to the local directory's file, shared by every session of a
// service and, one at a time, by every thread.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "base/value.h"
#include "platform/directory.h"
#include "platform/linux/database/kept_answers.h"
#include "platform/linux/database/local_store.h"
#include "platform/linux/database/sqlite_file.h"

namespace paddock {

class LocalDatabase {
 public:
  // Opens nothing yet. A call of `use` waits for other threads, and up to `patience` for other
  // processes' locks, see LockPatience.
  explicit LocalDatabase(std::string path,
                         std::chrono::milliseconds patience = std::chrono::seconds(5));

  const std::string& path() const { return path_; }

  // Called at the end of every `use` in which users, groups or passwords have changed, with the
  // database still in use. It does not throw. Set before the first `use`.
  using AccountListener = std::function<void(LocalStore&)>;
  void onAccountChange(AccountListener listener) { accountListener_ = std::move(listener); }

  // Calls work(LocalStore&) with exclusive use of the open database, and returns its result. Opens
  // the file when it is not open, and when the file at the path was replaced or removed. An error
  // that may come from the file or the connection closes it, so that the next call finds a repaired
  // file. No transaction outlives the call.
  template <typename Work>
  auto use(Work&& work) {
    const MutexLock lock(mutex_);
    LocalStore& store = opened();
    try {
      const AccountNotice notice(*this, store);
      return work(store);  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the caller gets it
    } catch (const DirectoryError& error) {
      noteFailure(error);
      throw;
    }
  }

  // LocalStore's `recordsWithValue` as by `use`; a repeated search of an unchanged database is
  // answered from a cache.
  Array recordsWithValue(const std::vector<std::string>& types, const std::string& attribute,
                         const std::string& value);

  // Counts the directories found at the path; read it inside `use`. Record numbers are not valid
  // across generations.
  std::uint64_t generation() const {
    mutex_.assertHeld();
    return generation_;
  }

 private:
  // Its destructor notifies the listener of changes, if any.
  class AccountNotice {
   public:
    AccountNotice(LocalDatabase& database, LocalStore& store)
        : database_(database), store_(store) {}
    AccountNotice(const AccountNotice&) = delete;
    AccountNotice& operator=(const AccountNotice&) = delete;
    ~AccountNotice() {
      if (store_.takeAccountChange() && database_.accountListener_)
        database_.accountListener_(store_);
    }

   private:
    LocalDatabase& database_;
    LocalStore& store_;
  };

  LocalStore& opened() PADDOCK_REQUIRES(mutex_);
  void open(std::chrono::milliseconds timeout) PADDOCK_REQUIRES(mutex_);
  void noteFailure(const DirectoryError& error) PADDOCK_REQUIRES(mutex_);
  bool isOpenFile() PADDOCK_REQUIRES(mutex_);
  DatabaseState stateOf(LocalStore& store) const PADDOCK_REQUIRES(mutex_);

  const std::string path_;
  AccountListener accountListener_;
  Mutex mutex_;
  std::unique_ptr<LocalStore> store_ PADDOCK_GUARDED_BY(mutex_);
  LockPatience patience_ PADDOCK_GUARDED_BY(mutex_);
  KeptAnswers answers_ PADDOCK_GUARDED_BY(mutex_);
  // The last stat(2) of the file at the path.
  struct stat seen_ PADDOCK_GUARDED_BY(mutex_) {};
  // The file that was opened last, and the identity of the directory in it.
  SqliteFileIdentity file_ PADDOCK_GUARDED_BY(mutex_);
  std::string identity_ PADDOCK_GUARDED_BY(mutex_);
  std::uint64_t generation_ PADDOCK_GUARDED_BY(mutex_) = 0;
};

}  // namespace paddock
