// The one long-lived connection to the local directory's file, shared by every session of a
// service and, one at a time, by every thread.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/value.h"
#include "platform/directory.h"
#include "platform/linux/database/kept_answers.h"
#include "platform/linux/database/local_store.h"
#include "platform/linux/database/lock_patience.h"
#include "platform/linux/database/sqlite_file.h"

namespace paddock {

class LocalDatabase {
 public:
  // Opens nothing yet. A call of `use` waits for other threads, and up to `patience` for other
  // processes' locks, as LockPatience says.
  explicit LocalDatabase(std::string path,
                         std::chrono::milliseconds patience = std::chrono::seconds(5));

  const std::string& path() const { return path_; }

  // Called at the end of every `use` in which users, groups or passwords have changed, with the
  // database still in use. It does not throw. Set before the first `use`.
  using AccountListener = std::function<void(LocalStore&)>;
  void onAccountChange(AccountListener listener) { accountListener_ = std::move(listener); }

  // Runs work(LocalStore&) with the database open and nobody else using it, and returns what it
  // returns. Opens the file when it is not open, and when the file at the path has become
  // another one or has gone. An error that may come from the file or the connection closes it, so
  // that the next call finds a repaired file. No transaction outlives the call.
  template <typename Work>
  auto use(Work&& work) {
    const std::lock_guard lock(mutex_);
    LocalStore& store = opened();
    try {
      const AccountNotice notice(*this, store);
      return work(store);  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the caller gets it
    } catch (const DirectoryError& error) {
      noteFailure(error);
      throw;
    }
  }

  // LocalStore's `recordsWithValue` as by `use`; the same search of an unchanged database is
  // answered from what was found before.
  Array recordsWithValue(const std::vector<std::string>& types, const std::string& attribute,
                         const std::string& value);

  // Counts the directories that were found at the path; read it inside `use`. A record's number
  // means nothing in another generation.
  std::uint64_t generation() const { return generation_; }

 private:
  // Its end tells the listener, when there is something to tell.
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

  LocalStore& opened();
  void open(std::chrono::milliseconds timeout);
  void noteFailure(const DirectoryError& error);
  bool isOpenFile();
  DatabaseState stateOf(LocalStore& store) const;

  const std::string path_;
  AccountListener accountListener_;
  std::mutex mutex_;
  std::unique_ptr<LocalStore> store_;
  LockPatience patience_;
  KeptAnswers answers_;
  // What was seen of the file at the path when it was looked at last.
  struct stat seen_ {};
  // The file that was opened last, and the identity of the directory in it.
  SqliteFileIdentity file_;
  std::string identity_;
  std::uint64_t generation_ = 0;
};

}  // namespace paddock
