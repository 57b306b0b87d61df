// What a program that pushes privileges down a folder says in its status file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/value.h"

namespace paddock::keelhouse {

struct FailedObject {
  std::string path;  // not yet printable
  std::string error;
};

struct ChangedObject {
  std::string path;                  // not yet printable
  std::vector<std::string> changes;  // "owner", "group", "mode", "acl"
};

// What is not there reads as 0, false or empty, a negative number too.
struct RunStatus {
  bool completed = false;
  bool stopped = false;  // before its end
  bool dryRun = false;   // nothing was changed: `changed` is what would be
  std::string path;
  std::string error;  // why it could not start
  std::int64_t process = 0;
  std::uint64_t done = 0;
  std::uint64_t total = 0;  // an estimate until it is completed
  std::uint64_t changed = 0;
  std::uint64_t failed = 0;
  std::uint64_t seconds = 0;
  std::vector<FailedObject> errors;     // the first ones
  std::vector<ChangedObject> examples;  // of a dry run
};

RunStatus readRunStatus(const Dictionary& status);

}  // namespace paddock::keelhouse
