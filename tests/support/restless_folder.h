// A folder that moves all the time.
#pragma once

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

namespace paddock {

// From `here`, where it is, to `there` and back, as long as this object lives; it ends `here`.
class RestlessFolder {
 public:
  RestlessFolder(std::string here, std::string there)
      : thread_([this, here, there] {
          while (!isEnding_) {
            (void)std::rename(here.c_str(), there.c_str());
            (void)std::rename(there.c_str(), here.c_str());
          }
        }) {}
  RestlessFolder(const RestlessFolder&) = delete;
  RestlessFolder& operator=(const RestlessFolder&) = delete;
  ~RestlessFolder() {
    isEnding_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> isEnding_ = false;
  std::thread thread_;
};

}  // namespace paddock
