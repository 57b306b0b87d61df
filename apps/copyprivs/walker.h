// One thread of a walk; see tree_walk.h.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/work_queue.h"
#include "copyprivs/folder_stack.h"
#include "copyprivs/named_objects.h"
#include "copyprivs/object_setter.h"
#include "copyprivs/own_descriptors.h"
#include "copyprivs/run_report.h"
#include "platform/linux/files/folder_entries.h"

namespace paddock::copyprivs {

struct Work {
  Folder::Pointer folder;
  FileDescriptor descriptor;
  bool isRead = false;        // only what follows is to be looked at; else the folder, to its end
  std::vector<char> entries;  // in the form of getdents64(2)
  NameList pending;           // names of folders in it
  // For an estimate: how much of the tree each entry or name is thought to be, or the whole folder.
  double share = 0;
};

// What the threads of a walk have in common.
struct SharedWalk {
  SharedWalk(unsigned threads, const Propagation& pushed, FilePrivileges& accounts,
             RunReport& gathered, const std::atomic<bool>& stopping)
      : queue(threads),
        propagation(pushed),
        privileges(accounts),
        report(gathered),
        stop(stopping) {}

  WorkQueue<Work> queue;
  const Propagation& propagation;
  FilePrivileges& privileges;
  RunReport& report;
  const std::atomic<bool>& stop;
  ObjectStatus root;
  FileDescriptor rootFolder;
  // For objects that have several names, so that two threads do not set one at once.
  std::array<std::mutex, 64> linked;
};

class Walker {
 public:
  // At most `descriptors` (4 or more) stay open, besides what is on its way into the queue, and the
  // object that is being set.
  Walker(SharedWalk& shared, std::size_t descriptors);

  // Takes work until there is none; on a thread that does nothing else from then on.
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
  Outcome set(int object, const ObjectStatus& status, const char* name);
  Outcome setOne(int object, const ObjectStatus& status);
  bool isOnMount(const ObjectStatus& status) const;
  bool holdNamed(const char* name, FileDescriptor& object, ObjectStatus& status);
  bool isInside();
  bool isWhereItWas();
  bool isBelowThoseAbove(const FolderStack::Level& level);
  void leaveOut(const std::string& why);
  void sharePending();
  void give(const FolderStack::Level& level, std::vector<char> entries, NameList pending,
            double share);
  void noteFolderError(const Folder& folder, const std::string& error);
  void noteError(const char* name, const std::string& error);

  SharedWalk& shared_;
  ObjectSetter setter_;
  FolderStack stack_;
  // Of the thread.
  std::optional<NamedObjects> named_;
  std::optional<OwnDescriptors> descriptors_;
  RunReport::Counts counts_;
  std::size_t pendingBytes_ = 0;
  std::chrono::steady_clock::time_point nextLook_;
  // What the one before was tells mostly what the next one is.
  bool expectsChange_ = true;
  bool isInFolder_ = false;  // whether the thread's working folder is the lowest one
  std::vector<char> buffer_;
  std::vector<const dirent64*> others_;  // what is no folder, of the entries that are looked at
};

}  // namespace paddock::copyprivs
