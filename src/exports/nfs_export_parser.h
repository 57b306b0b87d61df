// The NFS server's exports file: hand-written lines, and one block of managed lines between two
// boundary comments.
//
// Every line outside the block is kept as it was read, but for blank lines, which are dropped,
// and indentation, which is cut off. Only "\n" ends a line. An entry that goes on over several
// lines is one line, with the blank line that ends it (see exports_entry.h). Blank lines and
// indentation are blanks, tabs and line feeds: any other white space ends exportfs's reading of the
// file, so that what stands behind it would come to be exported if it were dropped. Of a file's end
// all six ASCII white space characters are dropped.
//
// Safety. The file as it was before its first change is kept beside it, as FILE.before-paddock.
// A file that is there but cannot be read (not UTF-8, no permission, above 64 MiB) is never written
// over. A parser that has neither read nor written its file merges the lines of one that has been
// created concurrently before it writes. Writing unchanged contents leaves the file alone, its
// ctime included. A file that is overwritten although it is not what was last read or written, or
// that another process still has open for writing, is kept (see replaced_exports.h);
// `writeFileKeepingOthersChanges` overwrites one only when others write it repeatedly, or on a file
// system that cannot exchange the files back. A file that was removed is recreated with its
// contents, which is logged as an error.
//
// Not thread-safe: callers hold the module's request lock.
#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "exports/export_line_array.h"
#include "exports/nfs_export_record.h"
#include "paddock/configuration_parser.h"
#include "platform/text_file.h"

namespace paddock {

inline constexpr const char* kBeginMarker =
    "###  [  Begin Keelhouse managed exports.  Do Not Edit.";
inline constexpr const char* kEndMarker = "###  ]  End Keelhouse managed exports.";

class NFSExportParser : public ConfigurationParser {
 public:
  // A parser of no file (`init`), with no lines.
  NFSExportParser() = default;

  // A parser of the file at `path`, which is read immediately; without a file it has no lines.
  static std::unique_ptr<NFSExportParser> initWithFile(std::string path);
  static std::unique_ptr<NFSExportParser> parserWithFile(std::string path);

  // Replaces the lines with the file's. False when the file is missing, cannot be read or is not
  // UTF-8; the lines are then as they were. An exception gives false too, and may leave a part of
  // the lines.
  bool readFile() override;
  // The same when the file has changed since it was last read or written, by its identity, size and
  // times: unwritten additions and removals are then reapplied. Otherwise does nothing and returns
  // true.
  bool readFileIfChanged();
  // `readFile`, except for removed exports that are still in the file because it could not be
  // written: they stay removed, and leave the file with the next write.
  bool readFileWithoutRemoved();
  // The paths of those exports.
  std::set<std::string> unwrittenRemovals() const;
  // Whether there are additions or removals that are not in the file.
  bool hasUnwrittenChanges() const { return !changes_.empty(); }
  // `writeFile`, provided the file is what was last read or written: while it is changed, or open
  // for writing elsewhere, it is reread as by `readFileIfChanged`, a few times at most.
  bool writeFileKeepingOthersChanges();
  // Replaces the file with the lines, the boundary comments around the exports. Returns false, with
  // the file unchanged, on failure, and when there is neither a file nor anything to write. The
  // lines are not changed.
  bool writeFile() override;

  // The error of the last attempt to read, copy or write the file, as "cannot write FILE: Read-only
  // file system". Empty on success, and when there was no file.
  const std::string& fault() const { return fault_; }
  // Its errno: EILSEQ for a file that is not UTF-8. Meaningless without a fault.
  int faultError() const { return faultError_; }
  // Whether the file existed and was not empty, and has gone. Its contents are kept, and go into
  // the next one.
  bool isGone() const { return isGone_; }

  // Puts the two boundary comments around the span from the first to the last export, whatever
  // lies between; nothing when there is no export.
  void addManagedExportsBoundaryComments();

  // Exports alone; raw lines do not count.
  std::size_t exportCount() const { return lineArray_.exportCount(); }

  // Removes the exports with the record's path and puts the record before the first export, or
  // at the very top when there is none: deliberate, an export that is replaced moves to the top
  // of its block, and the first export of a file starts the block above every other line.
  // The record is not copied and not checked; one that cannot be a line is not written.
  void addOrReplaceExport(const NFSExportRecordPtr& record);
  // Removes the exports with that path.
  void removeExportWithPath(const std::string& path);
  // The first export with exactly that path, the parser's own object; null when there is none.
  NFSExportRecordPtr exportWithPath(const std::string& path);
  // All of them, in the order of their lines.
  std::vector<NFSExportRecordPtr> exportsWithPath(const std::string& path) const;

  // The lines, for logs.
  std::string description() const;

 private:
  // Positions of the boundary comments; none without an export.
  using Boundaries = std::vector<ExportLineArray::Position>;

  // An export that was added, or the path of those that were removed.
  using Change = std::variant<NFSExportRecordPtr, std::string>;
  enum class WriteResult { written, failed, fileChanged };

  explicit NFSExportParser(std::string path) : ConfigurationParser(std::move(path)) {}

  Boundaries insertBoundaries();
  void readLines(std::string_view text);
  std::string textWithBoundaries();
  bool load();
  bool loadUnlessKnown();
  bool loadAndRepeatChanges();
  void apply(const Change& change);
  WriteResult write(bool unlessFileChanged);
  WriteResult replace(const std::string& text, const FileIdentity* expected);
  bool keepFirstCopy();
  void know(std::string text, const FileIdentity& identity);
  bool noteFault(const char* what, const std::string& why, int error);
  bool noteError(const char* what, int error);
  WriteResult failed(const char* what, int error);

  ExportLineArray lineArray_;
  std::vector<Change> changes_;  // since the file was last read or written
  bool knowsFile_ = false;       // the file was read or written
  bool createdFile_ = false;     // there was no file to copy
  bool isGone_ = false;
  std::string known_;  // contents last read or written
  FileIdentity identity_;
  std::string fault_;
  int faultError_ = 0;
};

}  // namespace paddock
