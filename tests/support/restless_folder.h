// A folder that moves all the time, and a tree that takes a while to be walked.
#pragma once

#include <atomic>
#include <cstdio>
#include <filesystem>
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

// So many that the folder moves during each round, however busy the machine is: it is in the
// highest folder, which a walk leaves last. Returns how many.
inline int makeManyFolders(const std::string& path) {
  constexpr int kFolders = 8'000;
  for (int number = 0; number < kFolders; ++number) {
    std::filesystem::create_directory(path + "/many" + std::to_string(number));
  }
  return kFolders;
}

}  // namespace paddock
