// The one long-lived connection to the local directory's file, shared by every session of a
// service and, one at a time, by every thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "platform/directory.h"
#include "platform/linux/local_store.h"
#include "platform/linux/lock_patience.h"
#include "platform/linux/sqlite_file.h"

namespace paddock {

class LocalDatabase {
 public:
  // Opens nothing yet. A call of `use` waits for other threads, and up to `patience` for other
  // processes' locks, as LockPatience says.
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
  LocalStore& opened();
  void open(std::chrono::milliseconds timeout);
  void noteFailure(const DirectoryError& error);
  bool isOpenFile() const;

  const std::string path_;
  std::mutex mutex_;
  std::unique_ptr<LocalStore> store_;
  LockPatience patience_;
  // The file that was opened last, and the identity of the directory in it.
  FileIdentity file_;
  std::string identity_;
  std::uint64_t generation_ = 0;
};

}  // namespace paddock
