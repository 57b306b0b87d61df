// The file that reports the progress of a run.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "base/file_access.h"
#include "base/mutex.h"
#include "base/value.h"

namespace paddock::copyprivs {

// Replaced atomically each time, so that a reader never sees a partial file: a regular file of mode
// 0600, owned by the user of the process. Not thread-safe.
//
// Others may be able to make files in its folder, as in /tmp. So the name under which it is written
// cannot be guessed, and nothing that has a name there already is opened or removed.
//
// An existing file at its path is replaced only when it is such a file of this user, with one link.
// A missing one is created the first time; one that is missing later was removed by a reader that
// is no longer interested, and is not created again.
class StatusFile {
 public:
  // The folder is resolved here, symlinks followed; the file itself is never followed.
  explicit StatusFile(const std::string& path);

  // Why the file cannot be written; empty when it can, or is not wanted.
  const std::string& failure() const { return failure_; }
  // Does nothing after a failure. The last one is on disk when the call returns.
  void replace(std::string_view contents, bool isLast);

 private:
  bool mayBeReplaced();
  int write(std::string_view contents, bool isLast) const;
  void fail(const std::string& what);

  const std::string path_;
  std::string name_;
  FileDescriptor folder_;
  std::string failure_;
  bool wasWritten_ = false;
  bool isUnwanted_ = false;
};

// Writes a run's status periodically while it lasts.
class StatusWriter {
 public:
  // `status` returns the contents; called on a thread of this object until `stop`, the first time
  // immediately. The file must outlive this object, and must not be used before `stop`.
  StatusWriter(StatusFile& file, std::function<Dictionary()> status);
  StatusWriter(const StatusWriter&) = delete;
  StatusWriter& operator=(const StatusWriter&) = delete;
  ~StatusWriter() { stop(); }

  void stop();

 private:
  void run();
  // Whether the end has come before the next time to write.
  bool waitForEnd() PADDOCK_REQUIRES(mutex_);

  StatusFile& file_;
  const std::function<Dictionary()> status_;
  Mutex mutex_;
  ConditionVariable ending_;
  bool isEnding_ PADDOCK_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace paddock::copyprivs
