// Threads that share one piece of work.
#pragma once

#include <functional>
#include <vector>

namespace paddock {

// Runs each of `workers` on a thread of its own, and returns when all have ended. When one throws,
// or there is no room for another thread, `stop` is called, on whatever thread that is, perhaps
// several times, and is to bring the others to their end; the first exception is thrown then.
void runWorkers(const std::vector<std::function<void()>>& workers,
                const std::function<void()>& stop);

}  // namespace paddock
