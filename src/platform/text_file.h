// Whole text files that others read too.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace paddock {

// Identity and state of the file at a path. Equal ones are the same file, unchanged in between as
// far as its size and times show.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;
  std::int64_t modified = 0;  // nanoseconds since 1970, as `changed`
  std::int64_t changed = 0;
  // The file was old enough at the call for a later change to show in its times. Times of files are
  // coarse: one that has only just been changed can be changed again without a trace.
  bool settled = false;

  bool isSameState(const FileIdentity& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           modified == other.modified && changed == other.changed;
  }
};

// A file that was replaced. It no longer has a name of its own, and is deleted with this object
// unless it is kept.
class ReplacedFile {
 public:
  ReplacedFile() = default;
  ReplacedFile(const ReplacedFile&) = delete;
  ReplacedFile& operator=(const ReplacedFile&) = delete;
  virtual ~ReplacedFile() = default;

  // Its bytes when it gave way; absent when they could not be read (see `TextFiles::read`).
  virtual const std::optional<std::string>& contents() const = 0;
  // Whether another process still has it open for writing, so that it may still change.
  virtual bool isOpenForWriting() const = 0;
  // Gives the file itself a name where nothing has it. 0; EEXIST when something has it; or another
  // errno. A file for which the last call failed stays in the folder, under a generated name.
  virtual int keepAs(const std::string& path) = 0;
};

class TextFiles {
 public:
  virtual ~TextFiles() = default;

  // Reads the whole file, links followed. 0, its bytes and what file it was when they were read, or
  // an errno and nothing: ENOENT, EACCES, EISDIR, EFBIG above 64 MiB, and EINVAL for anything that
  // is not a regular file.
  virtual int read(const std::string& path, std::string& contents, FileIdentity& identity) = 0;
  int read(const std::string& path, std::string& contents) {
    FileIdentity identity;
    return read(path, contents, identity);
  }

  // What file the path leads to, links followed. 0, or an errno.
  virtual int identify(const std::string& path, FileIdentity& identity) = 0;

  // Replaces the file, or creates it with mode 0644: at every moment, a crash included, a
  // reader finds the old contents or the new ones. A link at the path is resolved first and
  // stays; owner, group and mode of an earlier file are kept. 0, or an errno with the file as it
  // was and no temporary file left; an errno of the very last step, making the new name durable,
  // comes with the new contents in place.
  virtual int replace(const std::string& path, const std::string& contents) = 0;

  struct Replacement {
    FileIdentity written;                   // the new file
    std::unique_ptr<ReplacedFile> gaveWay;  // null when there was none
  };
  // The same, and returns the file that was replaced, whichever process had created it. With
  // `expected`, ESTALE and the file as others left it when that was another file, or that one in
  // another state, or open for writing elsewhere; for an identity of no file, when there was one. A
  // file created there concurrently that could not be kept in place is returned with ESTALE, too.
  // Returns 0 with another file only where the file system cannot put it back.
  virtual int replaceKeeping(const std::string& path, const std::string& contents,
                             const FileIdentity* expected, Replacement& replacement) = 0;

  // Copies a file to a path where nothing is yet, with owner, group and mode. 0, EEXIST when
  // something is there (it is left alone), or another errno with nothing created.
  virtual int copyOnce(const std::string& from, const std::string& to) = 0;

  // Removes the entry directly inside the folder, of any type but a folder: a symlink is removed,
  // not its target. The folder's own path is followed, links included; a folder that may be
  // searched need not be readable. 0; ENOENT when nothing has the name or there is no such folder;
  // EACCES for a link on the way to the folder that does not count (path_use.h); ENOTDIR when that
  // is none; EISDIR; EINVAL for a name that no file has (empty, "." and "..", one with a slash or a
  // NUL) and a path with a NUL; or another errno with everything as it was.
  virtual int removeFile(const std::string& folder, const std::string& name) = 0;

  // The names directly inside the folder that begin with `prefix`, in the order of their bytes. 0,
  // or an errno and none.
  virtual int namesBeginningWith(const std::string& folder, const std::string& prefix,
                                 std::vector<std::string>& names) = 0;

  // Whether a file exists at the path, links followed.
  virtual bool exists(const std::string& path) = 0;
};

}  // namespace paddock
