// The lines of the exports file in their order: raw lines and exports.
//
// An index maps paths to exports, so that lookups, removals and insertions take constant time
// however long the file is. A record that is in the array may be given another path at any time;
// the index notices.
//
// Records count as equal when their identifiers are, that is, their paths; a record without a
// path equals itself alone and is never found.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

#include "exports/nfs_export_record.h"

namespace paddock {

class ExportLineArray {
 public:
  using Element = std::variant<std::string, NFSExportRecordPtr>;
  using Elements = std::list<Element>;
  using Position = Elements::iterator;

  ExportLineArray() = default;
  ExportLineArray(const ExportLineArray&) = delete;
  ExportLineArray& operator=(const ExportLineArray&) = delete;
  ~ExportLineArray() = default;

  const Elements& elements() const { return elements_; }
  std::size_t exportCount() const { return exportCount_; }
  void clear();

  // Appends a raw line, which ends in "\n".
  void append(std::string line);
  void append(const NFSExportRecordPtr& record);

  // The first and the last export; `end()` when there is none.
  Position firstExport() { return firstExport_; }
  Position lastExport();
  Position end() { return elements_.end(); }

  // Returns the position of the line.
  Position insertLine(Position before, std::string line);
  // Inserts before the first export, or at the very top when there is none.
  void insertFirst(const NFSExportRecordPtr& record);
  void removeLine(Position position) { elements_.erase(position); }

  NFSExportRecordPtr firstWithPath(const std::string& path);
  // Removes every export with the path.
  void removeAllWithPath(const std::string& path);

 private:
  static bool isExport(const Element& element) {
    return std::holds_alternative<NFSExportRecordPtr>(element);
  }
  // The exports of one path; nearly always it is one.
  struct SamePath {
    Position first;
    std::vector<Position> others;
  };

  bool isIndexUpToDate() const {
    return indexed_ && pathChanges_ == NFSExportRecord::listedPathChanges();
  }
  void bringIndexUpToDate();
  void index(Position position);
  void removeExport(Position position);

  Elements elements_;
  Position firstExport_ = elements_.end();
  std::size_t exportCount_ = 0;
  // Exports by path, those with the same one in line order. Built lazily. The keys refer to the
  // records' own texts: an outdated index must not be searched.
  std::unordered_map<std::string_view, SamePath> byPath_;
  bool indexed_ = false;
  std::uint64_t pathChanges_ = NFSExportRecord::listedPathChanges();
};

}  // namespace paddock
