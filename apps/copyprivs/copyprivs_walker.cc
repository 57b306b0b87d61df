#include "copyprivs/copyprivs_walker.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string_view>
#include <system_error>
#include <utility>

#include "base/system_call.h"
#include "copyprivs/folder.h"

namespace paddock::copyprivs {

namespace {

constexpr std::size_t kBuffer = std::size_t{32} << 10U;
// Fewer bytes of entries are not worth queueing.
constexpr std::size_t kShared = std::size_t{2} << 10U;
// With more pending bytes of names on all levels, smaller batches are read.
constexpr std::size_t kManyPending = std::size_t{4} << 20U;
constexpr std::size_t kSmallBuffer = 1024;

constexpr std::string_view kRemoved = " (deleted)";

constexpr const char* kRestless =
    "it kept changing during the run, and what was moved from or to it may not be set; run it "
    "again";

// Errors that mean that the object vanished while its folder was read.
bool isGone(int error) { return error == ENOENT || error == ESTALE; }

// The approximate number of entries of a folder; 0 when its size gives no indication.
std::uint64_t entriesOf(const ObjectStatus& folder) {
  constexpr std::uint64_t kUsualBytes = 40;
  constexpr std::uint64_t kSmallFolder = 8192;
  return folder.bytes <= kSmallFolder ? 0 : folder.bytes / kUsualBytes;
}

std::string because(const std::string& what, int error) {
  return what + ": " + std::generic_category().message(error);
}

}  // namespace

Walker::Walker(SharedWalk& shared, std::size_t descriptors)
    : shared_(shared),
      setter_(shared.propagation, shared.privileges),
      stack_(descriptors, shared.root),
      buffer_(kBuffer) {}

void Walker::run() {
  named_.emplace();
  descriptors_.emplace();
  while (auto work = shared_.queue.take()) perform(std::move(*work));
}

void Walker::perform(Work work) {
  stack_.clear();
  FolderStack::Level& base = stack_.push(std::move(work.folder), std::move(work.descriptor));
  base.isRead = work.isRead;
  base.pending = std::move(work.pending);
  base.pendingShare = work.share;
  base.unreadShare = work.isRead ? 0 : work.share;
  pendingBytes_ = base.pending.bytes();
  if (!work.entries.empty() && isInside()) look(FolderEntries(work.entries), work.share);
  while (!stack_.empty() && !isStopped()) {
    const FolderStack::Level& level = stack_.top();
    if (level.isRead && level.pending.empty()) {
      leave();
    } else {
      this->work();
    }
  }
  shared_.report.add(counts_);
}

void Walker::leave() {
  const Folder& folder = *stack_.top().folder;
  // What is known already is not asked again, but to name the folders of the last round.
  if (!shared_.rounds.isDisturbed() || shared_.rounds.isLast()) {
    ObjectStatus now;
    int error = stack_.openTop();
    if (error == 0) error = statusOf(stack_.top().descriptor.get(), now);
    if (error != 0) {
      noteUnknown(folder, error);
    } else if (!folder.isAsEncountered(now)) {
      noteChange(folder, now.changed);
    }
  }
  stack_.pop();
}

// A folder that is gone changed the one above it, too.
void Walker::noteUnknown(const Folder& folder, int error) {
  shared_.rounds.noteChange();
  if (shared_.rounds.isLast() && !isGone(error)) noteFolderError(folder, kRestless);
}

void Walker::noteChange(const Folder& folder, const FileTime& time) {
  shared_.rounds.noteChange(time);
  if (shared_.rounds.isLast()) noteFolderError(folder, kRestless);
}

void Walker::work() {
  if (const int error = stack_.openTop(); error != 0) {
    leaveOut(because("it was moved or removed, and is not done to its end", error));
  } else if (!stack_.top().pending.empty()) {
    if (isInside()) enterNext();
  } else {
    readOn();
  }
}

void Walker::readOn() {
  FolderStack::Level& level = stack_.top();
  if (level.position != 0 && !isInside()) return;
  const std::span<const char> bytes = readEntriesOf(level);
  const double share = shareOfEach(level, bytes);
  if (bytes.empty()) return;
  FolderEntries entries(bytes);
  if (bytes.size() >= kShared && shared_.queue.isWanted())
    give(level, entries.cutHalf(), {}, share);
  look(entries, share);
  shared_.report.add(counts_);
}

// The estimated share of the tree of each of the entries; what was read is subtracted from the
// level.
double Walker::shareOfEach(FolderStack::Level& level, std::span<const char> bytes) {
  std::uint64_t count = 0;
  for (FolderEntries entries(bytes); entries.next() != nullptr;) ++count;
  if (count == 0) {
    counts_.share += std::exchange(level.unreadShare, 0);
    return 0;
  }
  // A folder not read to its end is estimated to hold at least as many entries again.
  const std::uint64_t all = level.isRead ? count : std::max(level.unread, 2 * count);
  const double each = level.unreadShare / static_cast<double>(all);
  level.unreadShare -= each * static_cast<double>(count);
  level.unread -= std::min(level.unread, count);
  return each;
}

std::span<const char> Walker::readEntriesOf(FolderStack::Level& level) {
  const std::span<char> all(buffer_);
  const auto buffer = pendingBytes_ > kManyPending ? all.first(kSmallBuffer) : all;
  std::size_t size = 0;
  // A folder read to its end in one pass need not be reopened.
  do {
    std::span<const char> bytes;
    const int error =
        readEntries(level.descriptor.get(), buffer.subspan(size), bytes, level.position);
    // A removed folder was empty; for the starting folder it is an error.
    if (error != 0 && (!isGone(error) || level.folder->above() == nullptr)) {
      noteFolderError(*level.folder, because("cannot read", error));
    }
    level.isRead = bytes.empty();
    size += bytes.size();
  } while (!level.isRead && size < buffer.size() / 2);
  return buffer.first(size);
}

void Walker::look(FolderEntries entries, double share) {
  FolderStack::Level& level = stack_.top();
  level.pendingShare = share;
  others_.clear();
  const Visit visit = level.folder->visit();
  while (const dirent64* entry = entries.next()) {
    if (visit == Visit::whole) ++counts_.found;
    if (entry->d_type == DT_DIR) {
      level.pending.add(entry->d_name);
      pendingBytes_ += std::string_view(entry->d_name).size() + 1;
    } else if (visit != Visit::folders || entry->d_type == DT_UNKNOWN) {
      others_.push_back(entry);
    }
  }
  shared_.report.add(counts_);
  // Inodes created together are adjacent, on disk and in memory.
  std::sort(others_.begin(), others_.end(),
            [](const dirent64* left, const dirent64* right) { return left->d_ino < right->d_ino; });
  isInFolder_ = named_->enter(level.descriptor.get());
  for (const dirent64* entry : others_) {
    if (isStopped()) return;
    setNamed(entry->d_name);
    counts_.share += share;
  }
}

void Walker::setNamed(const char* name) {
  if (!expectsChange_ && isInFolder_ && visit() != Visit::folders && isFoundRight(name)) {
    if (isCounted()) ++counts_.done;
    return;
  }
  FileDescriptor object;
  ObjectStatus status;
  if (!holdNamed(name, object, status)) return;
  if (status.isFolder()) {
    // The file system does not report an entry's type, or the name was reused for another object.
    stack_.top().pending.add(name);
    pendingBytes_ += std::string_view(name).size() + 1;
  } else {
    setHeld(object, status, name);
  }
}

// Whether nothing is to be done for the entry of that name; false also when that is unknown.
bool Walker::isFoundRight(const char* name) {
  if (shared_.isRemote) return false;
  ObjectStatus status;
  return statusOf(AT_FDCWD, name, status) == 0 && isOnMount(status, shared_.root) &&
         !status.isFolder() && !isLeftOut(status) &&
         !setter_.wouldSet(name, status, stack_.top().folder->levels());
}

bool Walker::isLeftOut(const ObjectStatus& status) const {
  return shared_.propagation.leavesLinks && status.links > 1 &&
         status.owner != shared_.propagation.privs.uid;
}

void Walker::setHeld(const FileDescriptor& object, const ObjectStatus& status, const char* name) {
  if (visit() == Visit::folders) return;
  if (isLeftOut(status)) {
    if (!isCounted()) return;
    ++counts_.done;
    ++counts_.leftOut;
    return;
  }
  FileDescriptor file;
  const bool isOpen = S_ISREG(status.type) && descriptors_->reopen(object.get(), file) == 0;
  expectsChange_ = set(isOpen ? file.get() : object.get(), status, name, visit()).changed;
}

void Walker::enterNext() {
  if (shared_.queue.isWanted()) sharePending();
  FolderStack::Level& level = stack_.top();
  if (level.pending.empty()) return;
  const double share = level.pendingShare;
  const std::string name = level.pending.take();
  pendingBytes_ -= std::min(pendingBytes_, name.size() + 1);
  FileDescriptor object;
  ObjectStatus status;
  if (!holdNamed(name.c_str(), object, status)) return;
  if (status.isFolder()) {
    enter(object.get(), name, status, share);
  } else {
    setHeld(object, status, name.c_str());
  }
}

void Walker::enter(int held, const std::string& name, const ObjectStatus& status, double share) {
  const Visit visit = visitOf(status, this->visit(), shared_.rounds);
  FileDescriptor descriptor;
  const int error = openFolder(held, descriptor);
  Outcome outcome = set(error == 0 ? descriptor.get() : held, status, name.c_str(), visit);
  if (error != 0) {
    if (!isGone(error) && outcome.error.empty()) {
      noteError(name.c_str(), because("cannot open", error));
    }
    return;
  }
  auto folder = std::make_shared<const Folder>(stack_.top().folder, name, status,
                                               std::move(outcome.inside), visit, outcome.changed);
  if (!outcome.error.empty()) folder->noteError();
  const WalkRounds& rounds = shared_.rounds;
  // What comes or goes sets both times. Setting privileges changes one, whoever owns the folder can
  // set the other, to a time that is yet to come as well.
  const bool hasChanged = rounds.isOfThisRound(status.changed) &&
                          (rounds.isFirst() || rounds.isOfThisRound(status.modified));
  if (hasChanged) noteChange(*folder, status.changed);
  FolderStack::Level& level = stack_.push(std::move(folder), std::move(descriptor));
  level.unreadShare = share;
  level.unread = entriesOf(status);
}

// False when there is nothing to set: it vanished, is on another mount, or cannot be examined.
bool Walker::holdNamed(const char* name, FileDescriptor& object, ObjectStatus& status) {
  const int error = holdInside(stack_.top().descriptor.get(), name, shared_.root, object, status);
  if (error == 0) return true;
  const bool isNoObject = isGone(error) || error == EXDEV;
  if (!isNoObject) noteError(name, because("cannot look at it", error));
  if (!isCounted()) return false;
  if (isNoObject) {
    --counts_.found;
  } else {
    ++counts_.done;
  }
  return false;
}

Outcome Walker::set(int object, const ObjectStatus& status, const char* name, Visit visit) {
  Outcome outcome = setOne(object, status);
  const bool isNewError = !outcome.error.empty() && noteError(name, outcome.error);
  // One that failed before, and does again, is counted.
  const bool isCounted =
      visit == Visit::whole || isNewError || (outcome.changed && outcome.error.empty());
  if (isCounted) ++counts_.done;
  if (isCounted && outcome.changed) ++counts_.changed;
  if (outcome.changed && shared_.propagation.dryRun && shared_.report.wantsExamples()) {
    shared_.report.addExample(stack_.top().folder->pathOf(name), outcome.changes);
  }
  return outcome;
}

Outcome Walker::setOne(int object, const ObjectStatus& status) {
  const Levels::Pointer& levels = stack_.top().folder->levels();
  if (status.links == 1 || status.isFolder()) return setter_.set(object, status, levels);
  const MutexLock lock(shared_.linked[status.inode % shared_.linked.size()]);
  ObjectStatus now = status;
  if (statusOf(object, now) != 0) now = status;
  return setter_.set(object, now, levels);
}

// Whether the lowest folder is still below the starting one. Left out when not.
bool Walker::isInside() {
  if (isWhereItWas()) return true;
  leaveOut("it was moved away, and is not done to its end");
  return false;
}

bool Walker::isWhereItWas() {
  const FolderStack::Level& level = stack_.top();
  std::string root = descriptors_->pathOf(shared_.rootFolder.get());
  // Longer paths are not returned, after a long search.
  const bool isTold = !root.empty() && level.folder->pathLength() < PATH_MAX;
  const std::string path = isTold ? descriptors_->pathOf(level.descriptor.get()) : std::string();
  if (path.empty()) return isBelowThoseAbove(level);
  if (root.ends_with(kRemoved) && !path.starts_with(root)) {
    root.resize(root.size() - kRemoved.size());
  }
  if (!root.ends_with('/')) root += '/';
  return (path + '/').starts_with(root);
}

// Where no path is available, far below the starting folder, the ancestors are checked instead.
// That is slow there: the result of a check is reused for several times as long as the check took.
bool Walker::isBelowThoseAbove(const FolderStack::Level& level) {
  constexpr int kWorth = 4;
  const auto now = std::chrono::steady_clock::now();
  if (now < nextLook_) return true;
  const bool isBelow = hasItsAncestors(level.descriptor.get(), *level.folder);
  const auto end = std::chrono::steady_clock::now();
  if (isBelow) nextLook_ = end + kWorth * (end - now);
  return isBelow;
}

void Walker::leaveOut(const std::string& why) {
  FolderStack::Level& level = stack_.top();
  noteFolderError(*level.folder, why);
  level.isRead = true;
  pendingBytes_ -= std::min(pendingBytes_, level.pending.bytes());
  level.pending = {};
}

// Queues half of the highest level's folders for other threads, unless that leaves nothing to do
// here.
void Walker::sharePending() {
  FolderStack::Level* level = stack_.highestPending();
  if (level == nullptr) return;
  if (level->pending.isOne() && level == &stack_.top() && level->isRead) return;
  NameList half = level->pending.cutHalf();
  pendingBytes_ -= std::min(pendingBytes_, half.bytes());
  give(*level, {}, std::move(half), level->pendingShare);
}

void Walker::give(const FolderStack::Level& level, std::vector<char> entries, NameList pending,
                  double share) {
  int descriptor = -1;
  const int error =
      errnoOf([&] { return ::fcntl(level.descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1); },
              &descriptor);
  if (error != 0) throw systemError(error, "cannot share", level.folder->path());
  shared_.queue.give({level.folder, FileDescriptor(descriptor), true, std::move(entries),
                      std::move(pending), share});
}

void Walker::noteFolderError(const Folder& folder, const std::string& error) {
  if (folder.noteError()) shared_.report.addError(folder.path(), error);
}

// False when the object is known to have failed.
bool Walker::noteError(const char* name, const std::string& error) {
  return shared_.report.addError(stack_.top().folder->pathOf(name), error);
}

}  // namespace paddock::copyprivs
