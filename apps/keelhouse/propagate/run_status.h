// What a program that pushes privileges down a folder says in its status file.
#pragma once

#include <cstdint>
#include <optional>
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
  std::uint64_t leftOut = 0;  // hard links to other people's files
  std::uint64_t failed = 0;
  std::uint64_t seconds = 0;
  std::vector<FailedObject> errors;     // the first ones
  std::vector<ChangedObject> examples;  // of a dry run
};

RunStatus readRunStatus(const Dictionary& status);

// The status file of a run, read as the daemon reads it.

// The dictionary in the file. Absent when there is none, or the file is not regular, not of root or
// this user, has more than one name or more than 1 MiB, or cannot be read.
std::optional<Dictionary> readStatusFile(const std::string& path);

// A run that has ended and has not been queried since.
struct EndedRun {
  std::string statusFile;
  Dictionary status;
};

// The last one of the folder in the tree below `root`; absent when there is none, or only root may
// know.
std::optional<EndedRun> endedRun(const std::string& root, const std::string& path);

}  // namespace paddock::keelhouse
