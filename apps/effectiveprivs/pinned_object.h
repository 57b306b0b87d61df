// A file or folder, held by a descriptor while it is judged, so that no other one takes its place.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "base/file_descriptor.h"

namespace paddock::effectiveprivs {

class PinnedObject {
 public:
  // What is at the path, the last component followed. Throws Failure when that cannot be held.
  explicit PinnedObject(const std::string& path);

  int number() const { return object_.get(); }
  const struct stat& status() const { return status_; }
  bool isFolder() const { return S_ISDIR(status_.st_mode); }
  // As messages name it.
  const std::string& path() const { return path_; }
  // The path by which the kernel knows it now, without links. Throws Failure.
  std::string realPath() const;

  // The folder that it is in: of a file the one that it was reached through, whatever links led
  // there. Nothing for the highest folder of all. Throws Failure when it cannot be held.
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
