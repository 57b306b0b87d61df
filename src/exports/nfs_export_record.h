// One line of the managed block of the exports file.
//
// A record is either an export (a path and its clients), or a line that is none by itself: a
// comment, or unparsable text. The latter keeps its text, has neither path nor clients, and is
// never found, changed or added. A line here is one entry, with the line breaks in it when it goes
// on over several lines.
//
// An export that was read from a line and not changed since is written back byte for byte, its
// spacing, quotes and comment included; a changed or new one in the form of `writeExportsLine`.
//
// Dictionary form: "path"; "clients", an array of {"host": string, "options": array of strings};
// "isDeleted"; "line" (without its "\n") in place of "path" and "clients" for a line that is no
// export. What was never set is absent. `recordWithDictionary` is the exact inverse of
// `dictionary`.
//
// A record belongs to one thread at a time, for reading too: the clients of a line are parsed
// lazily.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"
#include "exports/exports_line.h"

namespace paddock {

class NFSExportRecord;
using NFSExportRecordPtr = std::shared_ptr<NFSExportRecord>;

class NFSExportRecord {
 public:
  // An export without path and clients.
  NFSExportRecord() = default;
  NFSExportRecord(const NFSExportRecord&) = default;
  // Line arrays must notice changes: records are changed by their setters alone.
  NFSExportRecord& operator=(const NFSExportRecord&) = delete;
  ~NFSExportRecord() = default;

  // From one line as read, with or without the trailing "\n". Never null; never throws because of
  // the text.
  static NFSExportRecordPtr recordWithNfsExportFileLine(std::string_view line);
  static NFSExportRecordPtr recordWithDictionary(const Dictionary& settings);

  // The line as it is to be written, ending in "\n"; empty when the record cannot be a line.
  std::string nfsExportFileLine() const;
  // The same, appended to `text`.
  void appendNfsExportFileLine(std::string& text) const;

  // The exported folder; empty when it was never set. Compared byte for byte.
  const std::string& path() const { return path_ ? *path_ : noPath(); }
  // The record's identity: its path.
  const std::string& identifier() const { return path(); }
  const std::vector<NFSExportClient>& clients() const;
  bool isDeleted() const { return isDeleted_.value_or(false); }

  void setPath(std::string path);
  void setClients(std::vector<NFSExportClient> clients);
  void setDeleted(bool deleted) { isDeleted_ = deleted; }

  Dictionary dictionary() const;
  // Sets what `settings` names. A value of the wrong type reads as absent; a client or an option
  // of the wrong type makes the record invalid instead of being left out, since leaving it out
  // could grant more than was meant. "line" is read only by a record without path and clients.
  void addAttributesFromDictionary(const Dictionary& settings);

  // Why the record cannot be added to the exports file, as a text; absent when it can. An
  // export without clients cannot: the server would take it as one to everybody, which has to
  // be said with the host "*".
  std::optional<std::string> invalidReason() const;
  bool isValid() const { return !invalidReason().has_value(); }

  // Caches the line of a valid record, so that repeated writes of the file do not rebuild it.
  void settleLine();

  // Counts changes of the path of any record that is in a line array (see ExportLineArray).
  static std::uint64_t listedPathChanges();
  void setListed() { listed_.value = true; }

 private:
  // Marks the record as a member of a line array; a copy is none.
  struct Listed {
    Listed() = default;
    Listed(const Listed& /*other*/) {}
    Listed& operator=(const Listed& /*other*/) { return *this; }
    ~Listed() = default;
    bool value = false;
  };

  static const std::string& noPath();
  bool isKeptLine() const { return line_ && !path_; }
  bool hasUnreadClients() const { return line_ && path_ && !clients_; }
  std::vector<NFSExportClient> unreadClients() const;
  void readClients() const;
  void forgetLine();
  ExportsLine exportsLine() const { return {path(), clients()}; }
  void readLine(std::string_view line);
  void replacePath(std::string path);

  std::optional<std::string> path_;
  // Not set until they are parsed from an export's line.
  mutable std::optional<std::vector<NFSExportClient>> clients_;
  std::optional<bool> isDeleted_;
  std::optional<std::string> line_;  // as read, without its "\n", while still valid
  Listed listed_;
};

}  // namespace paddock
