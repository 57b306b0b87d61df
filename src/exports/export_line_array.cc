#include "exports/export_line_array.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace paddock {

void ExportLineArray::clear() {
  indexed_ = false;
  byPath_.clear();
  elements_.clear();
  firstExport_ = elements_.end();
  exportCount_ = 0;
}

void ExportLineArray::append(std::string line) { elements_.emplace_back(std::move(line)); }

void ExportLineArray::append(const NFSExportRecordPtr& record) {
  elements_.emplace_back(record);
  if (exportCount_ == 0) firstExport_ = std::prev(elements_.end());
  ++exportCount_;
  record->setListed();
  indexed_ = false;
}

ExportLineArray::Position ExportLineArray::lastExport() {
  const auto last = std::find_if(elements_.rbegin(), elements_.rend(), isExport);
  return last == elements_.rend() ? elements_.end() : std::prev(last.base());
}

ExportLineArray::Position ExportLineArray::insertLine(Position before, std::string line) {
  return elements_.emplace(before, std::move(line));
}

void ExportLineArray::insertFirst(const NFSExportRecordPtr& record) {
  const auto before = exportCount_ == 0 ? elements_.begin() : firstExport_;
  firstExport_ = elements_.emplace(before, record);
  ++exportCount_;
  record->setListed();
  // An index in the order of the lines has it in front, where this one would put it last.
  const bool fits =
      isIndexUpToDate() && (record->path().empty() || !byPath_.contains(record->path()));
  indexed_ = false;
  if (fits) index(firstExport_);
  indexed_ = fits;
}

void ExportLineArray::index(Position position) {
  const std::string& path = std::get<NFSExportRecordPtr>(*position)->path();
  if (path.empty()) return;
  const auto [entry, isFirst] = byPath_.try_emplace(path, SamePath{position, {}});
  if (!isFirst) entry->second.others.push_back(position);
}

void ExportLineArray::bringIndexUpToDate() {
  if (isIndexUpToDate()) return;
  pathChanges_ = NFSExportRecord::listedPathChanges();
  byPath_.clear();
  byPath_.reserve(exportCount_);
  for (auto position = elements_.begin(); position != elements_.end(); ++position) {
    if (isExport(*position)) index(position);
  }
  indexed_ = true;
}

NFSExportRecordPtr ExportLineArray::firstWithPath(const std::string& path) {
  bringIndexUpToDate();
  const auto found = byPath_.find(path);
  if (found == byPath_.end()) return nullptr;
  return std::get<NFSExportRecordPtr>(*found->second.first);
}

void ExportLineArray::removeExport(Position position) {
  const bool wasFirst = position == firstExport_;
  const auto next = elements_.erase(position);
  --exportCount_;
  if (wasFirst) firstExport_ = std::find_if(next, elements_.end(), isExport);
}

void ExportLineArray::removeAllWithPath(const std::string& path) {
  bringIndexUpToDate();
  const auto found = byPath_.find(path);
  if (found == byPath_.end()) return;
  const SamePath removed = std::move(found->second);
  byPath_.erase(found);  // first: its key is the text of a record that goes
  removeExport(removed.first);
  for (const auto position : removed.others) removeExport(position);
}

}  // namespace paddock
