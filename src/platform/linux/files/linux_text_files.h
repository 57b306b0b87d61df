// Whole text files on Linux.
//
// A replacement is written to a new file ".NAME.XXXXXXXXXXXX" in the target's folder, synced,
// renamed over the target, and the folder is synced. What ends the process in between leaves the
// target as it was, and at most that one file. Where the file that gives way is wanted, the two
// exchange their names (renameat2(2)), and that one file may be it.
#pragma once

#include <functional>

#include "platform/linux/files/new_file.h"
#include "platform/text_file.h"

namespace paddock {

class LinuxTextFiles : public TextFiles {
 public:
  using TextFiles::read;
  int read(const std::string& path, std::string& contents, FileIdentity& identity) override;
  int identify(const std::string& path, FileIdentity& identity) override;
  int replace(const std::string& path, const std::string& contents) override;
  int replaceKeeping(const std::string& path, const std::string& contents,
                     const FileIdentity* expected, Replacement& replacement) override;
  int copyOnce(const std::string& from, const std::string& to) override;
  int removeFile(const std::string& folder, const std::string& name) override;
  int namesBeginningWith(const std::string& folder, const std::string& prefix,
                         std::vector<std::string>& names) override;
  bool exists(const std::string& path) override;

  // Whose a replacement is, and its mode, by those of the earlier file (null: there is none). An
  // owner or group of -1 is the process's own.
  using OwnershipRule = std::function<FileOwnership(const FileOwnership* present)>;
  // `replace` by another rule than the usual one.
  static int replaceAs(const std::string& path, const std::string& contents,
                       const OwnershipRule& rule);
};

}  // namespace paddock
