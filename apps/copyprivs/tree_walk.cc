#include "copyprivs/tree_walk.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "base/system_call.h"
#include "base/worker_threads.h"
#include "copyprivs/folder_opening.h"
#include "copyprivs/walker.h"

namespace paddock::copyprivs {

namespace {

constexpr unsigned kFewestThreads = 2;
constexpr unsigned kMostThreads = 8;
// Of a thread's descriptors: the object that is set, and what it gives away.
constexpr unsigned kPassingDescriptors = 2;

unsigned threadsOf(const WalkOptions& options) {
  if (options.threads != 0) return options.threads;
  const unsigned most = std::min(kMostThreads, options.descriptors / 8);
  return std::clamp(std::thread::hardware_concurrency(), kFewestThreads, most);
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

}  // namespace

void walkTree(const StartingFolder& folder, const Propagation& propagation,
              FilePrivileges& privileges, const WalkOptions& options, const std::atomic<bool>& stop,
              RunReport& report) {
  const unsigned threads = threadsOf(options);
  SharedWalk shared(threads, propagation, privileges, report, stop);
  shared.root = folder.status;
  shared.rootFolder = opened(folder);
  std::vector<std::unique_ptr<Walker>> walkers;
  for (unsigned number = 0; number < threads; ++number) {
    walkers.push_back(
        std::make_unique<Walker>(shared, options.descriptors / threads - kPassingDescriptors));
  }
  auto start =
      std::make_shared<const Folder>(nullptr, folder.path, folder.status, propagation.levels);
  shared.queue.give({std::move(start), opened(folder), false, {}, {}, 1});
  runThreads(shared, walkers);
}

}  // namespace paddock::copyprivs
