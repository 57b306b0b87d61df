#include "base/worker_threads.h"

#include <exception>
#include <thread>

#include "base/mutex.h"

namespace paddock {

namespace {

// The first exception of several threads.
class FirstFailure {
 public:
  // To be called where one is being handled.
  void keep() {
    const MutexLock lock(mutex_);
    if (!first_) first_ = std::current_exception();
  }
  // When the threads have ended, and so without the lock.
  void rethrow() const PADDOCK_NO_THREAD_SAFETY_ANALYSIS {
    if (first_) std::rethrow_exception(first_);
  }

 private:
  Mutex mutex_;
  std::exception_ptr first_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace

void runWorkers(const std::vector<std::function<void()>>& workers,
                const std::function<void()>& stop) {
  FirstFailure failure;
  const auto stopAfter = [&](const auto& action) {
    try {
      action();
    } catch (...) {
      failure.keep();
      stop();
    }
  };
  std::vector<std::thread> threads;
  threads.reserve(workers.size());
  stopAfter([&] {
    for (const std::function<void()>& worker : workers)
      threads.emplace_back([&stopAfter, &worker] { stopAfter(worker); });
  });
  for (std::thread& thread : threads) thread.join();
  failure.rethrow();
}

}  // namespace paddock
