// Brings a volume's quota files up to date.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/file_descriptor.h"
#include "quotascan/quota_file.h"
#include "quotascan/quota_table.h"

namespace paddock::quotascan {

// What became of one of the files.
struct FileOutcome {
  QuotaType type = kUserQuota;
  bool byKernel = false;  // the kernel's figures; else those of a walk
  TableSummary table;     // of what was written
  std::string failure;    // why it stays as it was; empty when it does not
};

struct ScanOutcome {
  std::vector<FileOutcome> files;        // one for each file that is there, users first
  std::optional<std::uint64_t> objects;  // how many a walk met; none when the kernel knew all
};

// What is told of a run while it lasts. `objects` is how many the walk has met so far.
struct ScanEvents {
  std::function<void()> waiting = [] {};  // another run is at the same volume
  std::function<void()> walking = [] {};
  std::function<void()> walked = [] {};
  std::atomic<std::uint64_t> objects = 0;
};

enum class CountedBy : std::uint8_t {
  any,          // the kernel, and a walk where it does not count
  kernelAlone,  // files that it does not count for stay as they are, and no other run is waited for
};

// `volume` is the path of a volume's highest folder. Throws Failure when it is not that, when it
// has no quota file, and when it cannot be counted.
ScanOutcome scanVolume(const std::string& volume, ScanEvents& events,
                       CountedBy countedBy = CountedBy::any);

}  // namespace paddock::quotascan
