#include "copyprivs/copyprivs_tree_walk.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "base/system_call.h"
#include "base/worker_threads.h"
#include "copyprivs/copyprivs_walker.h"
#include "copyprivs/folder.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/files/path_walk.h"
#include "platform/linux/privileges/linux_acl.h"
#include "platform/services.h"

namespace paddock::copyprivs {

namespace {

constexpr unsigned kFewestThreads = 2;
constexpr unsigned kMostThreads = 8;
// Of those that later rounds recognise, in 1 MiB.
constexpr std::size_t kKnownFolders = 65'536;
// Of a thread's descriptors: the object being set, and a folder being queued.
constexpr unsigned kPassingDescriptors = 2;

unsigned threadsOf(const WalkOptions& options) {
  if (options.threads != 0) return options.threads;
  const unsigned most = std::min(kMostThreads, options.descriptors / 8);
  return std::clamp(std::thread::hardware_concurrency(), kFewestThreads, most);
}

CannotStart because(const std::string& what, int error) {
  return CannotStart(what + ": " + std::generic_category().message(error));
}

FileDescriptor opened(const StartingFolder& folder) {
  FileDescriptor descriptor;
  const int error = openFolder(folder.held.get(), descriptor);
  if (error != 0) throw systemError(error, "cannot open", folder.path);
  return descriptor;
}

void runThreads(SharedWalk& shared, const std::vector<std::unique_ptr<Walker>>& walkers) {
  std::vector<std::function<void()>> workers;
  workers.reserve(walkers.size());
  for (const auto& walker : walkers) workers.emplace_back([&walker] { walker->run(); });
  runWorkers(workers, [&shared] { shared.queue.stop(); });
}

// Whether another machine, or a program, answers for the file system; true also where that is not
// known.
bool isOnRemoteFileSystem(int object) {
  constexpr std::array<unsigned, 9> kRemote{NFS_SUPER_MAGIC,  SMB_SUPER_MAGIC,  CIFS_SUPER_MAGIC,
                                            SMB2_SUPER_MAGIC, FUSE_SUPER_MAGIC, CEPH_SUPER_MAGIC,
                                            AFS_SUPER_MAGIC,  AFS_FS_MAGIC,     V9FS_MAGIC};
  struct statfs status {};
  if (::fstatfs(object, &status) != 0) return true;
  const auto type = static_cast<unsigned>(status.f_type);
  return std::find(kRemote.begin(), kRemote.end(), type) != kRemote.end();
}

// Whether another round has something to begin with; it is an error when not.
bool isThere(const StartingFolder& folder, RunReport& report) {
  FileDescriptor again;
  const int error = openFolder(folder.held.get(), again);
  if (error != 0) report.addError(folder.path, because("cannot read", error).what());
  return error == 0;
}

Visit visitOfHighest(const ObjectStatus& status, const WalkRounds& rounds) {
  if (rounds.isFirst()) return Visit::whole;
  return rounds.isOfTheOneBefore(status.modified) ? Visit::again : Visit::folders;
}

void walkRound(const StartingFolder& folder, const Propagation& propagation,
               const WalkOptions& options, unsigned threads, SharedWalk& shared) {
  shared.rootFolder = opened(folder);
  std::vector<std::unique_ptr<Walker>> walkers;
  for (unsigned number = 0; number < threads; ++number) {
    walkers.push_back(
        std::make_unique<Walker>(shared, options.descriptors / threads - kPassingDescriptors));
  }
  auto start = std::make_shared<const Folder>(nullptr, folder.path, shared.root, propagation.levels,
                                              visitOfHighest(shared.root, shared.rounds));
  const double share = shared.rounds.isFirst() ? 1 : 0;
  shared.queue.give({std::move(start), opened(folder), false, {}, {}, share});
  runThreads(shared, walkers);
}

}  // namespace

void walkTree(const StartingFolder& folder, const Propagation& propagation,
              FilePrivileges& privileges, const WalkOptions& options, const std::atomic<bool>& stop,
              RunReport& report) {
  const unsigned threads = threadsOf(options);
  const bool isRemote = isOnRemoteFileSystem(folder.held.get());
  WalkRounds rounds(WalkRounds::kPause, kKnownFolders);
  do {
    SharedWalk shared(threads, propagation, privileges, rounds, report, stop);
    shared.root = folder.status;
    shared.isRemote = isRemote;
    if (rounds.isDisturbed()) {
      report.beginRepetition();
      // Before the round begins, so that no change is between the two.
      (void)statusOf(folder.held.get(), shared.root);
    }
    rounds.begin();
    walkRound(folder, propagation, options, threads, shared);
  } while (!propagation.dryRun && rounds.goOn(stop) && isThere(folder, report));
}

namespace {

// A trailing slash would make a symlink be followed that must not be.
std::string withoutSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

struct ListRelease {
  void operator()(acl::List* list) const { (void)services().acl->acl_free(list); }
};

void checkList(PrivilegedObject& object, const std::string& path) {
  const std::unique_ptr<acl::List, ListRelease> list(object.getAcl());
  if (!list && errno != ENOENT) throw because("cannot read the ACL of " + path, errno);
  if (list && services().acl->acl_valid(list.get()) != 0) {
    throw CannotStart("the ACL of " + path + " is invalid, so there is nothing to push from it");
  }
}

Levels::Pointer levelsOf(PrivilegedObject& object, const std::string& path) {
  checkList(object, path);
  InheritableACL* entries = nullptr;
  const int error = GetInheritableACL(object, entries, true);
  if (error != 0) throw because("cannot read the ACL of " + path, error);
  return std::make_shared<const Levels>(entries, nullptr);
}

}  // namespace

StartingFolder findStartingFolder(const std::string& path) {
  if (path.find('\0') != std::string::npos) throw because("cannot open " + path, ENOENT);
  StartingFolder folder;
  folder.path = withoutSlashes(path);
  const std::size_t name = folder.path.rfind('/') + 1;
  FileDescriptor above;
  std::optional<RefusedLink> refused;
  int error =
      holdObject(name > 0 ? folder.path.substr(0, name) : ".", PathUse::changing, above, &refused);
  if (refused) throw CannotStart("cannot open " + path + ": " + textWithOwner(*refused));
  // Of the highest folder nothing is left but the folder itself.
  const char* last = folder.path == "/" ? "." : folder.path.c_str() + name;
  if (error == 0) error = hold(above.get(), last, folder.held, folder.status);
  if (error != 0) throw because("cannot open " + path, error);
  if (S_ISLNK(folder.status.type)) throw CannotStart(path + " is a symbolic link");
  if (!folder.status.isFolder()) throw CannotStart(path + " is no folder");
  return folder;
}

Propagation propagationFrom(const StartingFolder& folder, std::uint32_t what,
                            const FileAcls& acls) {
  FileDescriptor descriptor;
  const int error = openFolder(folder.held.get(), descriptor);
  if (error != 0) throw because("cannot open " + folder.path, error);
  LinuxPrivilegedObject object(std::move(descriptor), acls);
  mode_t mode = 0;
  const int unreadable = object.readMode(mode);
  if (unreadable != 0) throw because("cannot read the mode of " + folder.path, unreadable);
  Propagation propagation;
  propagation.privs = {what, folder.status.owner, folder.status.group,
                       static_cast<std::uint16_t>(mode & 07777), nullptr};
  if ((what & kSetInheritedEntries) != 0) propagation.levels = levelsOf(object, folder.path);
  return propagation;
}

}  // namespace paddock::copyprivs
