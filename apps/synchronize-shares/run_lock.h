// One run at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "base/file_access.h"

namespace paddock::synchronizer {

class RunLock {
 public:
  // Waits for another run's lock in the folder, which is created when missing and must be owned by
  // this user. Throws std::system_error, ETIMEDOUT after `patience`.
  explicit RunLock(const std::string& folder,
                   std::chrono::milliseconds patience = std::chrono::seconds(30));

  // The descriptor of the locked file, open for reading and writing; valid as long as this object.
  int descriptor() const { return file_.get(); }

 private:
  FileDescriptor file_;
};

// The changes of the shares that smbd has been notified of, kept in the file that a run locks, so
// that a notification that failed in one run is repeated by the next.
//
// The file holds two decimal numbers: the changes so far, and the last one that smbd was notified
// of. Unreadable contents count as a change not notified, an empty file as none.
class ToldChanges {
 public:
  // `lockFile` is open for reading and writing, and locked during each call. Not owned.
  explicit ToldChanges(int lockFile);

  // The last change when smbd has not been notified of it, otherwise 0.
  std::uint64_t untold() const;
  // Records one more change, not yet notified. All three throw std::system_error.
  void add();
  // smbd was notified after this change.
  void told(std::uint64_t change);

 private:
  struct Counts {
    std::uint64_t changes = 0;
    std::uint64_t told = 0;
  };
  Counts read() const;
  void write(Counts counts);

  int file_;
};

}  // namespace paddock::synchronizer
