// The interrupt key (SIGINT) and SIGTERM, noticed instead of ending the program at once.
#pragma once

#include <chrono>
#include <csignal>

namespace paddock::keelhouse {

// During its lifetime. One at a time.
class Interruption {
 public:
  Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption();

  bool happened() const;

  // Waits that long, or until it happens.
  void wait(std::chrono::milliseconds time) const;

 private:
  struct sigaction beforeInterrupt_ {};
  struct sigaction beforeTerminate_ {};
};

}  // namespace paddock::keelhouse
