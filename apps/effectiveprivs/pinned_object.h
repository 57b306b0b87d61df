// A file or folder, held open by a descriptor during the evaluation, so that it cannot be replaced
// by another.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "base/file_access.h"

namespace paddock::effectiveprivs {

class PinnedObject {
 public:
  // The object at the path, symlinks followed. Throws Failure when it cannot be opened.
  explicit PinnedObject(const std::string& path);

  int number() const { return object_.get(); }
  const struct stat& status() const { return status_; }
  bool isFolder() const { return S_ISDIR(status_.st_mode); }
  // As messages name it.
  const std::string& path() const { return path_; }
  // The path by which the kernel knows it now, without links. Throws Failure.
  std::string realPath() const;

  // The folder that it is in: of a file the one that it was reached through, whatever links led
  // there. Absent for the root directory. Throws Failure when it cannot be opened.
  std::optional<PinnedObject> parent() const;

 private:
  PinnedObject(FileDescriptor object, std::string path);
  bool isSameAs(const struct stat& other) const;
  std::optional<PinnedObject> parentOfFolder() const;
  PinnedObject parentOfFile() const;

  std::string path_;
  FileDescriptor object_;
  struct stat status_ {};
};

}  // namespace paddock::effectiveprivs
