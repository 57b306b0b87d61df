// Ids of requests: unique in the life of the daemon, and, by a random part, beyond it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace paddock {

class RequestIds {
 public:
  RequestIds();
  std::string next();

 private:
  std::string prefix_;
  std::atomic<std::uint64_t> counter_{0};
};

}  // namespace paddock
