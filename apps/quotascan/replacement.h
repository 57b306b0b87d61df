// The file that takes a quota file's place.
#pragma once

#include <csignal>
#include <string>

#include "base/file_access.h"
#include "quotascan/quota_file.h"

namespace paddock::quotascan {

// Written beside the quota file under `replacementName`, and removed unless it was put in place.
// While it exists, the signals that interrupt a run are blocked. A killed process leaves the quota
// file as it was; its partial replacement is then removed by the next run's object, which the quota
// file's lock guarantees to be the only one.
class Replacement {
 public:
  // Makes the file, empty, with the owner, mode and extended attributes of the other. Throws
  // Failure.
  Replacement(int volume, const QuotaFile& replaced);
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement();

  int descriptor() const { return file_.get(); }
  const std::string& path() const { return path_; }
  // Brings it to the disk and renames it. Throws Failure.
  void putInPlace();

 private:
  // Holds back signals of this thread.
  class HeldSignals {
   public:
    HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;
    ~HeldSignals();

   private:
    sigset_t before_{};
  };

  void create();
  void takeAttributes(int from) const;
  void takeOwnership(int from) const;
  void check(int error) const;

  HeldSignals heldSignals_;
  int volume_;
  std::string replacedName_;
  std::string name_;
  std::string path_;
  FileDescriptor file_;
  bool isThere_ = false;
};

}  // namespace paddock::quotascan
