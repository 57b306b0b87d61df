// Changes in progress, without an audit line yet: one file per request, so that a crash in between
// leaves a trace. Thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/file_access.h"

namespace paddock {

class BegunChanges {
 public:
  // Creates the folder when it is missing. Throws std::system_error.
  explicit BegunChanges(std::string folder);

  // Stores the line of a request that begins. `durable`: synced, so that it survives a power
  // failure. Throws std::system_error on failure, and then leaves nothing behind.
  void keep(const std::string& request, std::string_view line, bool durable);
  void forget(const std::string& request);

  struct Kept {
    std::string request;
    std::string line;
  };
  // The stored lines, by request. Unreadable ones are logged and omitted.
  std::vector<Kept> kept() const;

 private:
  std::string path_;
  FileDescriptor folder_;
};

}  // namespace paddock
