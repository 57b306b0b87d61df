// Whole text files that others read too.
#pragma once

#include <string>

namespace paddock {

class TextFiles {
 public:
  virtual ~TextFiles() = default;

  // Reads the whole file, links followed. 0 and its bytes, or an errno and nothing: ENOENT,
  // EACCES, EISDIR, EFBIG above 64 MiB, and EINVAL for anything that is not a regular file.
  virtual int read(const std::string& path, std::string& contents) = 0;

  // Replaces the file, or creates it with mode 0644: at every moment, a crash included, a
  // reader finds the old contents or the new ones. A link at the path is resolved first and
  // stays; owner, group and mode of an earlier file are kept. 0, or an errno with the file as it
  // was and no temporary file left; an errno of the very last step, making the new name durable,
  // comes with the new contents in place.
  virtual int replace(const std::string& path, const std::string& contents) = 0;

  // Copies a file to a path where nothing is yet, with owner, group and mode. 0, EEXIST when
  // something is there (it is left alone), or another errno with nothing created.
  virtual int copyOnce(const std::string& from, const std::string& to) = 0;

  // Whether a file exists at the path, links followed.
  virtual bool exists(const std::string& path) = 0;
};

}  // namespace paddock
