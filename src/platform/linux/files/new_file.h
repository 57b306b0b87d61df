// Atomic file creation: written under a temporary name in its folder, then renamed into place. The
// temporary file is removed unless it is put in place.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>

#include "base/file_access.h"

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
  // Makes it durable, which is slow and done only once: after a call here, putting the file in
  // place does not wait.
  int sync();
  // Syncs the file and renames it over what has the name.
  int putInPlace();
  // Renames it alone, for a file that a loss of power may take.
  int putInPlaceUnsynced();
  // As putInPlace when the name is free: EEXIST otherwise.
  int putInEmptyPlace();
  // The same where a file has the name, which gets a new one of the same kind as the temporary
  // file's: `gaveWay`, which is then the caller's. ENOENT when nothing has the name. The folder is
  // not synced yet.
  int exchange(std::string& gaveWay);
  // Exchanges what has the name for what has the one that `exchange` gave out. An errno where the
  // file system cannot exchange, and when either is gone.
  int exchangeAgain(const std::string& gaveWay);
  // The temporary file has this name now, and goes as one that was never put in its place.
  void takeBack(std::string temporaryName) { temporaryName_ = std::move(temporaryName); }
  int syncFolder() const;

  // The file that was made; also once it is in its place, until this object goes.
  int descriptor() const { return file_.get(); }
  // Closes the descriptor: this object no longer has the file open for writing.
  void close() { file_ = FileDescriptor(); }

 private:
  int replaceKeepingLink(std::string& gaveWay);

  int folder_;
  std::string name_;
  std::string temporaryName_;  // empty when there is no such file
  FileDescriptor file_;
  bool synced_ = false;
};

}  // namespace paddock
