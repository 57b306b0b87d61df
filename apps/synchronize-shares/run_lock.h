// One run at a time.
#pragma once

#include <chrono>
#include <string>

#include "base/file_descriptor.h"

namespace paddock::synchronizer {

class RunLock {
 public:
  // Waits for another run's lock in the folder, which is made when it is missing and must be one
  // of this user's own. Throws std::system_error, ETIMEDOUT after `patience`.
  explicit RunLock(const std::string& folder,
                   std::chrono::milliseconds patience = std::chrono::seconds(30));

  // The locked file, open for reading and writing; valid as long as this object.
  int descriptor() const { return file_.get(); }

 private:
  FileDescriptor file_;
};

}  // namespace paddock::synchronizer
