// One thread of a walk; see copyprivs_tree_walk.h.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "base/worker_threads.h"
#include "copyprivs/copyprivs_folder_stack.h"
#include "copyprivs/object_access.h"
#include "copyprivs/object_setter.h"
#include "copyprivs/run_report.h"
#include "platform/linux/files/folder_entries.h"
#include "platform/linux/privileges/walk_rounds.h"

namespace paddock::copyprivs {

struct Work {
  Folder::Pointer folder;
  FileDescriptor descriptor;
  bool isRead = false;        // process only the entries that follow; else the whole folder
  std::vector<char> entries;  // in the form of getdents64(2)
  NameList pending;           // names of folders in it
  // For an estimate: how much of the tree each entry or name is thought to be, or the whole folder.
  double share = 0;
};

// The state shared by the threads of a round.
struct SharedWalk {
  SharedWalk(unsigned threads, const Propagation& pushed, FilePrivileges& accounts,
             WalkRounds& walkRounds, RunReport& gathered, const std::atomic<bool>& stopping)
      : queue(threads),
        propagation(pushed),
        privileges(accounts),
        rounds(walkRounds),
        report(gathered),
        stop(stopping) {}

  WorkQueue<Work> queue;
  const Propagation& propagation;
  FilePrivileges& privileges;
  WalkRounds& rounds;
  RunReport& report;
  const std::atomic<bool>& stop;
  ObjectStatus root;
  // Another machine's file system: what is known of an object here may be what it was.
  bool isRemote = false;
  FileDescriptor rootFolder;
  // For objects with several hard links, so that no two threads set one concurrently.
  std::array<Mutex, 64> linked;
};

class Walker {
 public:
  // At most `descriptors` (4 or more) stay open, besides folders being queued and the object being
  // set.
  Walker(SharedWalk& shared, std::size_t descriptors);

  // Processes queued folders until none is left; the calling thread must do nothing else
  // afterwards.
  void run();

 private:
  void perform(Work work);
  bool isStopped() const { return shared_.stop || shared_.queue.isStopped(); }
  void work();
  void readOn();
  std::span<const char> readEntriesOf(FolderStack::Level& level);
  double shareOfEach(FolderStack::Level& level, std::span<const char> bytes);
  void look(FolderEntries entries, double share);
  void setNamed(const char* name);
  void enterNext();
  void enter(int held, const std::string& name, const ObjectStatus& status, double share);
  void setHeld(const FileDescriptor& object, const ObjectStatus& status, const char* name);
  bool isFoundRight(const char* name);
  Outcome set(int object, const ObjectStatus& status, const char* name, Visit visit);
  Outcome setOne(int object, const ObjectStatus& status);
  bool isLeftOut(const ObjectStatus& status) const;
  bool isCounted() const { return visit() == Visit::whole; }
  Visit visit() const { return stack_.top().folder->visit(); }
  bool holdNamed(const char* name, FileDescriptor& object, ObjectStatus& status);
  bool isInside();
  bool isWhereItWas();
  bool isBelowThoseAbove(const FolderStack::Level& level);
  void leaveOut(const std::string& why);
  void sharePending();
  void give(const FolderStack::Level& level, std::vector<char> entries, NameList pending,
            double share);
  void leave();
  void noteChange(const Folder& folder, const FileTime& time);
  void noteUnknown(const Folder& folder, int error);
  void noteFolderError(const Folder& folder, const std::string& error);
  bool noteError(const char* name, const std::string& error);

  SharedWalk& shared_;
  ObjectSetter setter_;
  FolderStack stack_;
  // Of the thread.
  std::optional<NamedObjects> named_;
  std::optional<OwnDescriptors> descriptors_;
  RunReport::Counts counts_;
  std::size_t pendingBytes_ = 0;
  std::chrono::steady_clock::time_point nextLook_;
  // Prediction for the next object: mostly as the previous one.
  bool expectsChange_ = true;
  bool isInFolder_ = false;  // whether the thread's working folder is the lowest one
  std::vector<char> buffer_;
  std::vector<const dirent64*> others_;  // the entries being processed that are no folders
};

}  // namespace paddock::copyprivs
