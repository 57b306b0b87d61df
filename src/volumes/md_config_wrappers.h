// Search indexing of folders: whether it is on, switching it, and the access that the Lookwise
// indexing service needs.
//
// Paths are those of share points, and compared exactly. Nothing is reported but the booleans; what
// fails goes to the system log as an error, and the rest is left out. A path on the clustered file
// system is never changed.
#pragma once

#include <string>

namespace paddock {

// The configured command that is notified of changes: [indexing] command, see docs/indexing.md.

// Starts the command with the path and its new search level behind its own arguments, and does not
// wait for it: an indexer takes its time, and the settings lock is held. Without a command nothing
// is started. A command that cannot be started is logged, and no more.
void run_indexing_command(const std::string& path, const std::string& level);

// Class operations only. Callers hold the settings lock.
class MDConfigWrappers {
 public:
  MDConfigWrappers() = delete;

  static void setIsIndexingEnabled(bool enabled, const std::string& path);
  // Whether the path has a store whose search level is read-write; false when that cannot be asked.
  static bool isIndexingEnabledAtPath(const std::string& path);

  // Raises the path's store to read-write, or creates it so, and gives the indexing service's
  // account its entry when it is missing. A store that is read-write already is left alone.
  static void enableIndexingForPath(const std::string& path);
  // Lowers a read-write store to searching of file-system attributes. The store, its entry and a
  // lower level stay.
  static void disableIndexingForPath(const std::string& path);

  // Whether the path lies on the clustered file system; false when that cannot be asked.
  static bool isVelkor(const std::string& path);
  // Whether the path's extended ACL lets the indexing service's account search the folder and the
  // folders that will be made in it. False for an ACL that is absent, invalid or cannot be read.
  static bool isLookwiseACEPresent(const std::string& path);
  // Appends that entry to the path's extended ACL. False, and the ACL as it was, when that fails.
  static bool addLookwiseACE(const std::string& path);
};

}  // namespace paddock
