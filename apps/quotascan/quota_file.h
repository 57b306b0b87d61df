// A volume's quota file, opened to be brought up to date.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "base/file_access.h"
#include "volumes/quota_file_format.h"

namespace paddock::quotascan {

// The file is held by a lock (flock(2)) that one run has at a time; its descriptor and the lock go
// with the object. Nothing here writes to it.
class QuotaFile {
 public:
  // How another run that has the file is waited for.
  struct Waiting {
    std::function<void()> begins = [] {};
    std::optional<std::chrono::milliseconds> atMost = {};  // absent: as long as it takes
  };

  // The file of the type in the volume's highest folder. Absent when there is none. Throws Failure
  // for a file that cannot be opened, that another run locks for too long, or that is no file of
  // the type: not a regular file, a symlink, an invalid header, a size other than its header says.
  static std::optional<QuotaFile> open(int volume, const std::string& volumePath, QuotaType type,
                                       const Waiting& waiting);

  QuotaType type() const { return type_; }
  int descriptor() const { return file_.get(); }
  const QuotaFileHeader& header() const { return header_; }
  const std::string& path() const { return path_; }  // for messages
  const std::string& name() const { return name_; }  // in the volume's highest folder

  // Reads the header again, and throws Failure unless the name still leads to this file.
  void checkUnchanged(int volume);

 private:
  QuotaFile(const std::string& volumePath, QuotaType type);
  bool openAndLock(int volume, const Waiting& waiting);
  void lock(const Waiting& waiting) const;
  bool isInPlace(int volume) const;
  void readHeader();

  QuotaType type_;
  std::string name_;
  std::string path_;
  FileDescriptor file_;
  QuotaFileHeader header_;
};

// ".quota.user" or ".quota.group".
std::string quotaFileName(QuotaType type);
// The name of a file that takes the other's place, while it is written.
std::string replacementName(const std::string& quotaFileName);

}  // namespace paddock::quotascan
