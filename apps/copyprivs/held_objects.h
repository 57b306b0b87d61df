// What is done to objects of the file system that are held by O_PATH descriptors: nothing is ever
// opened, so that a FIFO, a device or a file with a lease does not notice.
#pragma once

#include <string>
#include <string_view>

#include "platform/linux/file_object.h"

namespace paddock::copyprivs {

class HeldObjects final : public ExtendedAttributes {
 public:
  // Descriptors are named in /proc/self/fd.
  HeldObjects() : folder_("/proc/self/fd/") {}
  // Makes that folder the process' working folder, where the names are shorter and looked up
  // sooner. Without /proc everything stays as it is.
  void enterFolder();

  // Errors are errno values: ENOSYS where /proc is not mounted.
  int get(int object, const std::string& name, std::string& value) const override;
  int set(int object, const std::string& name, std::string_view value) const override;
  int remove(int object, const std::string& name) const override;
  int changeMode(int object, mode_t mode) const;
  // Of a link itself, too.
  static int changeOwner(int object, std::uint32_t uid, std::uint32_t gid);
  // The path that it has now; empty when that is not known.
  std::string pathOf(int object) const;

 private:
  std::string nameOf(int object) const { return folder_ + std::to_string(object); }

  std::string folder_;
};

}  // namespace paddock::copyprivs
