// Whole text files that others read too.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace paddock {

// Which file a path led to, and in which state. Equal ones are the same file, unchanged in between
// as far as its size and times say.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;
  std::int64_t modified = 0;  // nanoseconds since 1970, as `changed`
  std::int64_t changed = 0;
  // The file was old enough when it was asked that a later change shows in its times. Times of
  // files are coarse: one that has only just been changed can be changed again without a trace.
  bool settled = false;

  bool isSameState(const FileIdentity& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           modified == other.modified && changed == other.changed;
  }
};

// A file that gave way to another one. It has no name of its own any more, and goes with this
// object unless it is kept.
class ReplacedFile {
 public:
  ReplacedFile() = default;
  ReplacedFile(const ReplacedFile&) = delete;
  ReplacedFile& operator=(const ReplacedFile&) = delete;
  virtual ~ReplacedFile() = default;

  // Its bytes when it gave way; absent when they could not be read (see `TextFiles::read`).
  virtual const std::optional<std::string>& contents() const = 0;
  // Whether another program still has it open for writing, so that it may change yet.
  virtual bool isOpenForWriting() const = 0;
  // Gives the file itself a name where nothing has it. 0; EEXIST when something has it; or another
  // errno. A file for which this failed last stays in the folder, under a name of nobody's choice.
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
  // The same, and hands over the file that was there at that very moment, whoever had put it there.
  // With `expected`, ESTALE and the file as others left it when that was another file, or that one
  // in another state, or open for writing elsewhere; for an identity of no file, when there was
  // one. What others put there meanwhile and cannot have stayed is handed over with ESTALE too.
  // 0 and another file handed over only where the file system has no way to put it back.
  virtual int replaceKeeping(const std::string& path, const std::string& contents,
                             const FileIdentity* expected, Replacement& replacement) = 0;

  // Copies a file to a path where nothing is yet, with owner, group and mode. 0, EEXIST when
  // something is there (it is left alone), or another errno with nothing created.
  virtual int copyOnce(const std::string& from, const std::string& to) = 0;

  // Removes what has the name directly inside the folder, whatever it is but a folder: a link is
  // removed, and what it leads to stays. The folder's own path is followed, links included; a
  // folder that may be searched need not be readable. 0;
  // ENOENT when nothing has the name or there is no such folder; EACCES for a link on the way to
  // the folder that does not count (path_use.h); ENOTDIR when that is none; EISDIR; EINVAL for a
  // name that no file has (empty, "." and "..", one with a slash or a NUL) and a path with a NUL;
  // or another errno with everything as it was.
  virtual int removeFile(const std::string& folder, const std::string& name) = 0;

  // The names directly inside the folder that begin with `prefix`, in the order of their bytes. 0,
  // or an errno and none.
  virtual int namesBeginningWith(const std::string& folder, const std::string& prefix,
                                 std::vector<std::string>& names) = 0;

  // Whether a file exists at the path, links followed.
  virtual bool exists(const std::string& path) = 0;
};

}  // namespace paddock
