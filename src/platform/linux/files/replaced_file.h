// A file that was replaced by another one, under its temporary name.
#pragma once

#include <optional>
#include <string>

#include "base/file_access.h"
#include "platform/text_file.h"

namespace paddock {

// Whether the name in the folder is that of the file, in that state except for its ctime after the
// renaming, and no process has it open for writing.
bool isUntouched(const FileDescriptor& folder, const std::string& name, const FileIdentity& file);
// Whether it is that of the file, in whatever state.
bool isFile(const FileDescriptor& folder, const std::string& name, const FileIdentity& file);

class LinuxReplacedFile : public ReplacedFile {
 public:
  // The file of that name in the folder; read at once.
  LinuxReplacedFile(FileDescriptor folder, std::string name);
  LinuxReplacedFile(const LinuxReplacedFile&) = delete;
  LinuxReplacedFile& operator=(const LinuxReplacedFile&) = delete;
  ~LinuxReplacedFile() override;

  const std::optional<std::string>& contents() const override { return contents_; }
  bool isOpenForWriting() const override { return openForWriting_; }
  // On another file system it is a copy, and one that is open for writing stays too.
  int keepAs(const std::string& path) override;

 private:
  int copyTo(const FileDescriptor& folder, const std::string& name);

  FileDescriptor folder_;
  std::string name_;
  bool stays_ = false;
  bool openForWriting_ = false;
  std::optional<std::string> contents_;
};

}  // namespace paddock
