// One thread of a walk; see volume_scan.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "base/worker_threads.h"
#include "platform/linux/files/folder_entries.h"
#include "platform/linux/privileges/walk_rounds.h"
#include "quotascan/quotascan_folder_stack.h"
#include "quotascan/usage.h"

namespace paddock::quotascan {

struct Work {
  FileDescriptor folder;
  FileTime changed;           // its ctime when it was encountered
  bool isCounted = false;     // see FolderStack::Level
  bool isRead = false;        // process only the entries that follow; else the whole folder
  std::vector<char> entries;  // in the form of getdents64(2)
  NameList pending;           // names of folders in it
};

// The state shared by the threads of a round.
struct SharedWalk {
  SharedWalk(unsigned threads, WalkRounds& walkRounds, LinkedInodes& linkedInodes,
             std::atomic<std::uint64_t>& counted, const std::set<std::string>& ignoredNames)
      : queue(threads),
        rounds(walkRounds),
        linked(linkedInodes),
        objects(counted),
        ignored(ignoredNames) {}

  WorkQueue<Work> queue;
  WalkRounds& rounds;
  LinkedInodes& linked;
  ObjectStatus root;
  std::atomic<std::uint64_t>& objects;
  const std::set<std::string>& ignored;  // names in the root folder
};

class Walker {
 public:
  // At most `descriptors` (2 or more) stay open, besides folders being queued and one folder being
  // entered.
  Walker(SharedWalk& shared, std::size_t descriptors);

  // Counts one object.
  void count(const ObjectStatus& status);
  // Processes queued folders until none is left. Throws Failure.
  void run();
  const Counts& counts() const { return counts_; }

 private:
  void perform(Work work);
  void readOn();
  void look(FolderStack::Level& level, FolderEntries entries);
  void lookAt(FolderStack::Level& level, const char* name);
  void countOther(const ObjectStatus& status);
  void enterNext();
  FileDescriptor enter(const FolderStack::Level& above, const std::string& name,
                       ObjectStatus& status);
  enum class Meeting : std::uint8_t { first, again, unknown };
  Meeting meetingOf(const FolderStack::Level& above, const ObjectStatus& status);
  void leave();
  void noteChange(const FileDescriptor& folder, const FileTime& time);
  void sharePending();
  void give(const FolderStack::Level& level, std::vector<char> entries, NameList pending);
  bool isOnVolume(const ObjectStatus& status) const;
  bool isIgnored(const FolderStack::Level& level, const char* name) const;
  void reportProgress();

  SharedWalk& shared_;
  FolderStack stack_;
  Counts counts_;
  std::uint64_t reported_ = 0;
  std::vector<char> buffer_;
  std::vector<const dirent64*> others_;  // the entries being processed that are no folders
};

}  // namespace paddock::quotascan
