// The one long-lived connection to the local directory's file, shared by every session of a
// service and, one at a time, by every thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "platform/directory.h"
#include "platform/linux/local_store.h"

namespace paddock {

class LocalDatabase {
 public:
  using Clock = std::chrono::steady_clock;

  // Opens nothing yet. A call of `use` waits for other threads, and up to `patience` for other
  // processes' locks. After it has waited in vain, the calls of the next `patience` do not wait
  // at all: a database that stays locked costs a request one wait, not one per look-up.
  explicit LocalDatabase(std::string path,
                         std::chrono::milliseconds patience = std::chrono::seconds(5));

  const std::string& path() const { return path_; }

  // Runs work(LocalStore&) with the database open and nobody else using it, and returns what it
  // returns. Opens the file when it is not open, and when the file at the path has become
  // another one or has gone. An error that may come from the file or the connection closes it, so
  // that the next call finds a repaired file. No transaction outlives the call.
  template <typename Work>
  auto use(Work&& work) {
    const std::lock_guard lock(mutex_);
    LocalStore& store = opened();
    try {
      return work(store);  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the caller gets it
    } catch (const DirectoryError& error) {
      noteFailure(error);
      throw;
    }
  }

  // Counts the directories that were found at the path; read it inside `use`. A record's number
  // means nothing in another generation.
  std::uint64_t generation() const { return generation_; }

 private:
  std::chrono::milliseconds timeout() const;
  LocalStore& opened();
  void open(std::chrono::milliseconds timeout);
  void noteFailure(const DirectoryError& error);
  bool isOpenFile() const;

  const std::string path_;
  const std::chrono::milliseconds patience_;
  std::mutex mutex_;
  std::unique_ptr<LocalStore> store_;
  Clock::time_point lockedUntil_;
  // The file that was opened last, and the identity of the directory in it.
  dev_t device_ = 0;
  ino_t inode_ = 0;
  std::string identity_;
  std::uint64_t generation_ = 0;
};

}  // namespace paddock
