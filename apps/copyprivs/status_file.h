// The file that says how far a run is.
#pragma once

#include <string>
#include <string_view>

#include "base/file_descriptor.h"

namespace paddock::copyprivs {

// Replaced as a whole each time, so that a reader never sees a part of it: a regular file of mode
// 0600 that belongs to the user of the process. For one thread at a time.
//
// What stands at its path is replaced only when it is such a file of this user, with one link.
// A missing one is made at first; one that goes missing later was taken away by somebody who is not
// interested any more, and is not made again.
class StatusFile {
 public:
  // The folder is looked up here, links followed; the file itself is never followed.
  explicit StatusFile(const std::string& path);

  // Why the file cannot be written; empty when it can, or nobody wants it.
  const std::string& failure() const { return failure_; }
  // Does nothing after a failure. The last one is to be on the disk when the call returns.
  void replace(std::string_view contents, bool isLast);

 private:
  bool mayBeReplaced();
  int write(std::string_view contents, bool isLast);
  void fail(const std::string& what);

  const std::string path_;
  std::string name_;
  std::string temporaryName_;
  FileDescriptor folder_;
  std::string failure_;
  bool wasWritten_ = false;
  bool isUnwanted_ = false;
};

}  // namespace paddock::copyprivs
