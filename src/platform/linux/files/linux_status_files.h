// Status files in the file system. A symlink at the end of a path is not followed, only a file that
// is read is opened, and a file is removed from the folder in which it was checked, whatever the
// rest of its path resolves to by then. Files are read by way of /proc.
#pragma once

#include <functional>
#include <string_view>

#include "platform/status_files.h"

namespace paddock {

class LinuxStatusFiles final : public StatusFiles {
 public:
  // Reads a property-list dictionary; absent for everything else.
  using Reader = std::function<std::optional<Dictionary>(std::string_view)>;

  // `root` is the host's, empty for the system itself.
  LinuxStatusFiles(std::string root, Reader reader)
      : root_(std::move(root)), reader_(std::move(reader)) {}

  int create(const std::string& pathTemplate, std::string& path) override;
  bool exists(const std::string& path) override;
  std::optional<Dictionary> read(const std::string& path) override;
  int remove(const std::string& path) override;
  int discard(const std::string& path) override;

 private:
  std::string root_;
  Reader reader_;
};

}  // namespace paddock
