// A file that comes into being as a whole: written under another name in its folder, then put
// in its place. Nothing is left of it when it is not put there.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "base/file_descriptor.h"

namespace paddock {

// Who owns a file, and its permission bits.
struct FileOwnership {
  uid_t owner;
  gid_t group;
  mode_t mode;
};

class NewFile {
 public:
  // `folder` is a descriptor of the folder, which outlives this object; `name` has no slash.
  NewFile(int folder, std::string name);
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile();

  // Each returns 0 or an errno; they are called in this order.
  int create();
  int write(std::string_view contents);
  int setOwnership(const FileOwnership& ownership);
  int setMode(mode_t mode);
  // Syncs the file and renames it over what has the name.
  int putInPlace();
  // The same where nothing has the name: EEXIST otherwise.
  int putInEmptyPlace();
  // The same where a file has the name, which gets a new one of the same kind as the temporary
  // file's: `gaveWay`, which is then the caller's. ENOENT when nothing has the name.
  int exchange(std::string& gaveWay);

  // The file that was made; also once it is in its place, until this object goes.
  int descriptor() const { return file_.get(); }

 private:
  int replaceKeepingLink(std::string& gaveWay);
  int sync();
  int syncFolder() const;

  int folder_;
  std::string name_;
  std::string temporaryName_;  // empty when there is no such file
  FileDescriptor file_;
};

}  // namespace paddock
