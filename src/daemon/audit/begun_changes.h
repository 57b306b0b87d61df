// What the daemon has begun and not yet written an audit line of: a file for each request, so that
// a crash in between leaves a trace. Any thread may call.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/file_descriptor.h"

namespace paddock {

class BegunChanges {
 public:
  // Makes the folder when it is missing. Throws std::system_error.
  explicit BegunChanges(std::string folder);

  // Keeps the line of a request that begins. `durable`: also when the power fails. Throws
  // std::system_error when it cannot be kept, and nothing is left of it then.
  void keep(const std::string& request, std::string_view line, bool durable);
  void forget(const std::string& request);

  struct Kept {
    std::string request;
    std::string line;
  };
  // What is kept, by request. What cannot be read is in the log, and left out.
  std::vector<Kept> kept() const;

 private:
  std::string path_;
  FileDescriptor folder_;
};

}  // namespace paddock
