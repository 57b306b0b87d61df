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

  // Removes what has the name directly inside the folder, whatever it is but a folder: a link is
  // removed, and what it leads to stays. The folder's own path is followed, links included. 0;
  // ENOENT when nothing has the name or there is no such folder; ENOTDIR when that is none; EISDIR;
  // EINVAL for a name that no file has (empty, "." and "..", one with a slash or a NUL) and a path
  // with a NUL; or another errno with everything as it was.
  virtual int removeFile(const std::string& folder, const std::string& name) = 0;

  // Whether a file exists at the path, links followed.
  virtual bool exists(const std::string& path) = 0;
};

}  // namespace paddock
