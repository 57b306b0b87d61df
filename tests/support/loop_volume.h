// A volume of its own for a test: ext4 in a file, mounted through a loop device. Used inside
// `runInOwnMounts`, whose end unmounts it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "support/own_mounts.h"
#include "support/run_to_end.h"
#include "support/temporary_folder.h"

namespace paddock {

class LoopVolume {
 public:
  // The size as truncate(1) takes it.
  explicit LoopVolume(const std::string& size = "16M") {
    std::filesystem::create_directory(path());
    const std::string image = folder_.path("image");
    run({"/usr/bin/truncate", "-s", size, image});
    run({"/usr/sbin/mkfs.ext4", "-q", "-m", "0", image});
    run({"/usr/bin/mount", "-o", "loop", image, path()});
    // mkfs leaves a time without a fraction, as coarse file systems have it.
    ::chmod(path("lost+found").c_str(), 0700);
  }
  LoopVolume(const LoopVolume&) = delete;
  LoopVolume& operator=(const LoopVolume&) = delete;
  ~LoopVolume() { ::umount2(path().c_str(), MNT_DETACH); }

  std::string path() const { return folder_.path("volume"); }
  std::string path(const std::string& name) const { return path() + "/" + name; }

 private:
  static void run(const std::vector<std::string>& words) {
    const EndedProgram ended = runProgram(words);
    if (ended.status != 0) throw std::runtime_error(words.front() + ": " + ended.error);
  }

  TestFolder folder_;
};

// Why there can be none here, for GTEST_SKIP; empty when there can.
inline std::string whyNoLoopVolumes() {
  if (std::string why = whyNoOwnMounts(); !why.empty()) return why;
  if (!std::filesystem::exists("/usr/sbin/mkfs.ext4")) return "volumes in files need mkfs.ext4";
  if (!std::filesystem::exists("/dev/loop-control")) return "volumes in files need loop devices";
  return "";
}

}  // namespace paddock
