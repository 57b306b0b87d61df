// The syntax of one line of the NFS server's exports file: exports(5) as nfs-utils reads it.
//
//   PATH [-DEFAULTS] CLIENT[(OPTION,OPTION...)] ... [# comment]
//
// The reader splits the line at white space, takes text in double quotes as it stands, and turns
// a backslash with three octal digits into that byte wherever the four characters come to stand
// together, also when the backslash or a digit came out of an earlier escape. A path has at most
// 1024 bytes and a client with its options 511; anything longer, and any option that exportfs(8)
// does not know, ends its reading of the whole file there.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace paddock {

struct NFSExportClient {
  // A host name, an address, a network (ADDRESS/PREFIX or ADDRESS/MASK), a name with wildcards,
  // "@NETGROUP", or "*" for everybody.
  std::string host;
  std::vector<std::string> options;  // "rw", "anonuid=99", in the order of the line
  friend bool operator==(const NFSExportClient&, const NFSExportClient&) = default;
};

struct ExportsLine {
  std::string path;
  std::vector<NFSExportClient> clients;
  friend bool operator==(const ExportsLine&, const ExportsLine&) = default;
};

// Reads an entry, without the "\n" at its end; it may go on over several lines (see
// exports_entry.h). Absent for what is no complete export by itself: a comment, several entries,
// one that leaves a quote open, a path that is not absolute or not UTF-8, anything that exportfs(8)
// reports as an error of syntax. Default options are put before the options of each client that
// they apply to; a line that names no client exports to "*", which is what the server does with it.
std::optional<ExportsLine> readExportsLine(std::string_view line);

// The path alone of a line that `readExportsLine` reads; absent for the others.
std::optional<std::string> readExportsPath(std::string_view line);

// Writes the line that `readExportsLine` reads back as `line`, without the "\n" at its end:
// one blank between the parts, octal escapes for control characters, white space, '"', '#' and
// backslashes (with the digits after them) in the path.
std::string writeExportsLine(const ExportsLine& line);

// Why the export cannot be written as a line that reads back identically, as a text for an
// administrator; nullopt when it can.
std::optional<std::string> exportsLineFault(const ExportsLine& line);

}  // namespace paddock
