#include "base/worker_threads.h"

#include <exception>
#include <mutex>
#include <thread>

namespace paddock {

namespace {

// The first exception of several threads.
class FirstFailure {
 public:
  // To be called where one is being handled.
  void keep() {
    const std::lock_guard lock(mutex_);
    if (!first_) first_ = std::current_exception();
  }
  void rethrow() const {
    if (first_) std::rethrow_exception(first_);
  }

 private:
  std::mutex mutex_;
  std::exception_ptr first_;
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
