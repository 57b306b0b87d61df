#include "quotascan/quotascan_walker.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/system_call.h"
#include "quotascan/quotascan_failure.h"

namespace paddock::quotascan {

namespace {

constexpr std::size_t kBuffer = std::size_t{64} << 10U;
// Fewer bytes of entries are not worth queueing.
constexpr std::size_t kShared = std::size_t{4} << 10U;
// With more pending bytes of names on all levels, smaller batches are read.
constexpr std::size_t kManyPending = std::size_t{4} << 20U;
constexpr std::size_t kSmallBuffer = 1024;

constexpr const char* kUnchanged = "nothing was changed; mend it and run quotascan again";

// Errors that mean that the object vanished while its folder was read.
bool isGone(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ESTALE;
}

}  // namespace

Walker::Walker(SharedWalk& shared, std::size_t descriptors)
    : shared_(shared), stack_(descriptors), buffer_(kBuffer) {}

void Walker::run() {
  while (auto work = shared_.queue.take()) perform(std::move(*work));
}

void Walker::count(const ObjectStatus& status) {
  counts_.users.add(status.owner, status.bytes);
  counts_.groups.add(status.group, status.bytes);
  ++counts_.objects;
}

void Walker::perform(Work work) {
  ObjectStatus status;
  if (const int error = statusOf(work.folder.get(), status); error != 0) {
    throw failureOf("read", pathOf(work.folder.get()), error, kUnchanged);
  }
  stack_.clear();
  status.changed = work.changed;
  stack_.push(std::move(work.folder), status, {}, work.isCounted);
  stack_.top().isRead = work.isRead;
  stack_.setPending(stack_.top(), std::move(work.pending));
  look(stack_.top(), FolderEntries(work.entries));
  while (!stack_.empty() && !shared_.queue.isStopped()) {
    if (!stack_.top().pending.empty()) {
      enterNext();
    } else if (!stack_.top().isRead) {
      readOn();
    } else {
      leave();
    }
  }
  reportProgress();
}

void Walker::readOn() {
  FolderStack::Level& level = stack_.top();
  const std::span<char> all(buffer_);
  const auto buffer = stack_.pendingBytes() > kManyPending ? all.first(kSmallBuffer) : all;
  std::span<const char> bytes;
  const int error = readEntries(level.folder.get(), buffer, bytes, level.position);
  if (error != 0 && !isGone(error))
    throw failureOf("read", pathOf(level.folder.get()), error, kUnchanged);
  if (bytes.empty()) {
    level.isRead = true;
    return;
  }
  FolderEntries entries(bytes);
  if (bytes.size() >= kShared && shared_.queue.isWanted()) give(level, entries.cutHalf(), {});
  look(level, entries);
  reportProgress();
}

void Walker::look(FolderStack::Level& level, FolderEntries entries) {
  others_.clear();
  while (const dirent64* entry = entries.next()) {
    if (isIgnored(level, entry->d_name)) continue;
    if (entry->d_type == DT_DIR) {
      stack_.addPending(level, entry->d_name);
    } else if (!level.isCounted || entry->d_type == DT_UNKNOWN) {
      others_.push_back(entry);
    }
  }
  // Inodes created together are adjacent, on disk and in memory.
  std::sort(others_.begin(), others_.end(),
            [](const dirent64* left, const dirent64* right) { return left->d_ino < right->d_ino; });
  for (const dirent64* entry : others_) lookAt(level, entry->d_name);
}

void Walker::lookAt(FolderStack::Level& level, const char* name) {
  ObjectStatus status;
  const int error = statusOf(level.folder.get(), name, status);
  if (isGone(error)) return;
  if (error != 0) {
    ObjectStatus place;
    if (placeOf(level.folder.get(), name, place) == 0 && !isOnVolume(place)) return;
    throw failureOf("read", pathOf(level.folder.get(), name), error, kUnchanged);
  }
  // Where the file system does not report an entry's type, or the name was reused for another
  // object.
  if (status.isFolder()) {
    stack_.addPending(level, name);
  } else if (!level.isCounted) {
    countOther(status);
  }
}

void Walker::countOther(const ObjectStatus& status) {
  // A file may be a mount point. Its device says nothing: some file systems give each file another.
  if (status.mount != shared_.root.mount) return;
  if (status.links > 1 && !shared_.linked.isFirst(status)) return;
  count(status);
}

void Walker::enterNext() {
  if (shared_.queue.isWanted()) sharePending();
  if (stack_.top().pending.empty()) return;
  std::string name = stack_.takePending(stack_.top());
  ObjectStatus status;
  FileDescriptor folder = enter(stack_.top(), name, status);
  if (!folder) return;
  if (shared_.rounds.isOfThisRound(status.changed)) noteChange(folder, status.changed);
  const Meeting meeting = meetingOf(stack_.top(), status);
  if (meeting == Meeting::first) count(status);
  if (meeting == Meeting::unknown) counts_.unsettled = pathOf(folder.get());
  // It was moved, and is counted where it was met before.
  if (meeting == Meeting::again && shared_.rounds.isFirst()) return;
  stack_.push(std::move(folder), status, std::move(name), meeting != Meeting::first);
}

Walker::Meeting Walker::meetingOf(const FolderStack::Level& above, const ObjectStatus& status) {
  WalkRounds& rounds = shared_.rounds;
  VisitedFolders& visited = rounds.visited();
  if (!visited.add(status)) return Meeting::again;
  if (rounds.isFirst() || visited.isComplete() || !above.isCounted) return Meeting::first;
  // Where nothing came to the folder above, its folders are those of the round before.
  return rounds.isOfTheOneBefore(above.changed) ? Meeting::unknown : Meeting::again;
}

void Walker::noteChange(const FileDescriptor& folder, const FileTime& time) {
  shared_.rounds.noteChange(time);
  if (shared_.rounds.isLast()) counts_.unsettled = pathOf(folder.get());
}

// Opens the folder; invalid when it vanished, or is on another volume.
FileDescriptor Walker::enter(const FolderStack::Level& above, const std::string& name,
                             ObjectStatus& status) {
  const auto check = [&](int error) {
    if (error != 0 && !isGone(error)) {
      throw failureOf("read", pathOf(above.folder.get(), name), error, kUnchanged);
    }
    return error == 0;
  };
  // First only held: opening triggers an automount, and asks the server of what is mounted there.
  int held = -1;
  const auto hold = [&] {
    return ::openat(above.folder.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
  };
  if (!check(errnoOf(hold, &held))) return {};
  const FileDescriptor object(held);
  if (!check(placeOf(held, status)) || !isOnVolume(status)) return {};
  if (!check(statusOf(held, status)) || !status.isFolder()) return {};
  int descriptor = -1;
  const auto open = [&] { return ::openat(held, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); };
  if (!check(errnoOf(open, &descriptor))) return {};
  return FileDescriptor(descriptor);
}

void Walker::leave() {
  const FolderStack::Level& level = stack_.top();
  // What is known already is not asked again, but to name a folder of the last round.
  if (!shared_.rounds.isDisturbed() || shared_.rounds.isLast()) {
    ObjectStatus now;
    const bool isKnown = statusOf(level.folder.get(), now) == 0;
    if (!isKnown || now.changed != level.changed) noteChange(level.folder, now.changed);
  }
  if (stack_.pop() == 0) return;
  throw Failure("a folder below " + pathOf(stack_.base().folder.get()) + ", " + stack_.top().name +
                ", was moved while it was counted; nothing was changed; run quotascan again");
}

// Queues half of the highest level's folders for other threads, unless that leaves nothing to do
// here.
void Walker::sharePending() {
  FolderStack::Level* level = stack_.highestPending();
  if (level == nullptr) return;
  if (level->pending.isOne() && level == &stack_.top() && level->isRead) return;
  give(*level, {}, stack_.cutPending(*level));
}

void Walker::give(const FolderStack::Level& level, std::vector<char> entries, NameList pending) {
  int descriptor = -1;
  const int error = errnoOf(
      [&] { return ::fcntl(level.folder.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }, &descriptor);
  if (error != 0) throw failureOf("open", pathOf(level.folder.get()), error, kUnchanged);
  shared_.queue.give({FileDescriptor(descriptor), level.changed, level.isCounted, true,
                      std::move(entries), std::move(pending)});
}

bool Walker::isOnVolume(const ObjectStatus& status) const {
  return status.mount == shared_.root.mount && status.device == shared_.root.device;
}

bool Walker::isIgnored(const FolderStack::Level& level, const char* name) const {
  return level.inode == shared_.root.inode && level.device == shared_.root.device &&
         shared_.ignored.contains(name);
}

void Walker::reportProgress() {
  shared_.objects += counts_.objects - reported_;
  reported_ = counts_.objects;
}

}  // namespace paddock::quotascan
