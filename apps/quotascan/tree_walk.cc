#include "quotascan/tree_walk.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "base/system_call.h"
#include "base/worker_threads.h"
#include "quotascan/failure.h"
#include "quotascan/walker.h"

namespace paddock::quotascan {

namespace {

constexpr unsigned kFewestThreads = 2;
constexpr unsigned kMostThreads = 12;
// Of a thread's descriptors: what it gives away, and a folder that it is about to enter.
constexpr unsigned kPassingDescriptors = 2;

unsigned threadsOf(const WalkOptions& options) {
  if (options.threads != 0) return options.threads;
  return std::clamp(std::thread::hardware_concurrency(), kFewestThreads, kMostThreads);
}

FileDescriptor duplicateOf(int folder) {
  int descriptor = -1;
  const int error = errnoOf(
      [&] { return ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }, &descriptor);
  if (error != 0) throw failureOf("open", pathOf(folder), error);
  return FileDescriptor(descriptor);
}

void runThreads(SharedWalk& shared, const std::vector<std::unique_ptr<Walker>>& walkers) {
  std::vector<std::function<void()>> workers;
  workers.reserve(walkers.size());
  for (const auto& walker : walkers) workers.emplace_back([&walker] { walker->run(); });
  runWorkers(workers, [&shared] { shared.queue.stop(); });
}

}  // namespace

Counts countUsage(int root, const WalkOptions& options, std::atomic<std::uint64_t>& objects) {
  const unsigned threads = threadsOf(options);
  SharedWalk shared(threads, objects, options.ignored);
  if (const int error = statusOf(root, shared.root); error != 0) {
    throw failureOf("read", pathOf(root), error);
  }
  std::vector<std::unique_ptr<Walker>> walkers;
  for (unsigned number = 0; number < threads; ++number) {
    walkers.push_back(
        std::make_unique<Walker>(shared, options.descriptors / threads - kPassingDescriptors));
  }
  walkers.front()->count(shared.root);
  shared.queue.give({duplicateOf(root), false, {}, {}});
  runThreads(shared, walkers);
  Counts counts;
  for (const auto& walker : walkers) counts.add(walker->counts());
  objects = counts.objects;
  return counts;
}

}  // namespace paddock::quotascan
