// The NFS server's exports file: hand-written lines, and one block of managed lines between two
// boundary comments.
//
// Every line outside the block is kept as it was read, but for blank lines, which are dropped,
// and indentation, which is cut off. White space here is the six ASCII characters blank, tab,
// line feed, carriage return, vertical tab and form feed. Only "\n" ends a line.
//
// Safety. The file as it was before its first change is kept beside it, as FILE.before-paddock.
// A file that is there but cannot be read (not UTF-8, no permission, above 64 MiB) is never
// written over. A parser that has neither read nor written its file takes over the lines of one
// that has appeared meanwhile before it writes. Writing what is in the file already leaves the
// file alone, its time of change included.
//
// Not safe from two threads at once: callers hold the module's request lock.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "exports/export_line_array.h"
#include "exports/nfs_export_record.h"
#include "paddock/configuration_parser.h"

namespace paddock {

inline constexpr const char* kBeginMarker =
    "###  [  Begin Keelhouse managed exports.  Do Not Edit.";
inline constexpr const char* kEndMarker = "###  ]  End Keelhouse managed exports.";

class NFSExportParser : public ConfigurationParser {
 public:
  // A parser of no file (`init`), with no lines.
  NFSExportParser() = default;

  // A parser of the file at `path`, which it reads at once; without a file it has no lines.
  static std::unique_ptr<NFSExportParser> initWithFile(std::string path);
  static std::unique_ptr<NFSExportParser> parserWithFile(std::string path);

  // Replaces the lines with the file's. False when the file is missing, cannot be read or is not
  // UTF-8; the lines are then as they were. An exception gives false too, and may leave a part of
  // the lines.
  bool readFile() override;
  // The same when the file was neither read nor written yet; otherwise nothing, and true.
  bool readFileUnlessKnown() { return knowsFile_ || readFile(); }
  // Replaces the file with the lines, the boundary comments around the exports. False, with the
  // file as it was, when that failed, and when there is neither a file nor anything to write.
  // The lines are the same afterwards.
  bool writeFile() override;

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

  // The lines, for logs.
  std::string description() const;

 private:
  // Where the boundary comments stand; none without an export.
  using Boundaries = std::vector<ExportLineArray::Position>;

  explicit NFSExportParser(std::string path) : ConfigurationParser(std::move(path)) {}

  Boundaries insertBoundaries();
  void readLines(std::string_view text);
  std::string textWithBoundaries();
  bool takeOverUnreadFile();
  bool replace(const std::string& text);
  bool write(const std::string& text, const std::string& present);

  ExportLineArray lineArray_;
  bool knowsFile_ = false;    // the file was read or written
  bool createdFile_ = false;  // there was nothing to keep a copy of
  std::size_t written_ = 0;   // hash of the text that was written last
};

}  // namespace paddock
