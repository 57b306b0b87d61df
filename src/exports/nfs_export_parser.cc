#include "exports/nfs_export_parser.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "base/status.h"
#include "base/text.h"
#include "exports/exports_entry.h"
#include "exports/replaced_exports.h"
#include "platform/services.h"
#include "platform/text_file.h"

namespace paddock {

namespace {

constexpr std::string_view kWhitespaceAndNewlines = " \t\n\r\v\f";
constexpr std::string_view kBlanksAndLineBreaks = " \t\n";
constexpr const char* kCopySuffix = ".before-paddock";
constexpr int kAttempts = 5;
constexpr std::chrono::milliseconds kFirstPause(10);
constexpr const char* kReading = "read";
constexpr const char* kNotUtf8 = "it is not UTF-8";

bool beginsWith(std::string_view line, std::string_view prefix) {
  return line.substr(0, prefix.size()) == prefix;
}

bool isMarker(std::string_view line) {
  return beginsWith(line, kBeginMarker) || beginsWith(line, kEndMarker);
}

// The line at the beginning of the text: one entry, or a marker. To exportfs a marker is a comment,
// which ends the entry before it.
std::string_view firstLine(std::string_view text) {
  const std::string_view entry = text.substr(0, exportsEntryLength(text));
  std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
  if (isMarker(text)) return text.substr(0, end);
  while (end < entry.size()) {
    const std::string_view rest = entry.substr(end);
    if (isMarker(rest.substr(std::min(rest.find_first_not_of(" \t"), rest.size())))) break;
    end += std::min(rest.find('\n'), rest.size() - 1) + 1;
  }
  return text.substr(0, end);
}

bool isBlank(std::string_view text) {
  return text.find_first_not_of(kWhitespaceAndNewlines) == std::string_view::npos;
}

void appendTextOf(const ExportLineArray::Element& element, std::string& text) {
  if (const auto* line = std::get_if<std::string>(&element)) {
    text += *line;
  } else {
    std::get<NFSExportRecordPtr>(element)->appendNfsExportFileLine(text);
  }
}

}  // namespace

std::unique_ptr<NFSExportParser> NFSExportParser::initWithFile(std::string path) {
  std::unique_ptr<NFSExportParser> parser(new NFSExportParser(std::move(path)));
  parser->readFile();
  return parser;
}

std::unique_ptr<NFSExportParser> NFSExportParser::parserWithFile(std::string path) {
  return initWithFile(std::move(path));
}

bool NFSExportParser::readFile() {
  try {
    return load();
  } catch (const std::exception& error) {
    return noteFault(kReading, error.what(), EIO);
  }
}

bool NFSExportParser::readFileIfChanged() {
  try {
    return loadUnlessKnown();
  } catch (const std::exception& error) {
    return noteFault(kReading, error.what(), EIO);
  }
}

// With what was added again, its removal before that is given up, too.
std::set<std::string> NFSExportParser::unwrittenRemovals() const {
  std::set<std::string> paths;
  for (const Change& change : changes_) {
    if (const auto* removed = std::get_if<std::string>(&change)) paths.insert(*removed);
  }
  for (const Change& change : changes_) {
    if (const auto* added = std::get_if<NFSExportRecordPtr>(&change)) paths.erase((*added)->path());
  }
  return paths;
}

bool NFSExportParser::readFileWithoutRemoved() {
  const std::set<std::string> removals = unwrittenRemovals();
  changes_.assign(removals.begin(), removals.end());
  try {
    if (loadAndRepeatChanges()) return true;
    // What was added and not written is not there, whether the file can be read or not.
    if (knowsFile_) readLines(known_);
    for (const Change& change : changes_) apply(change);
    return false;
  } catch (const std::exception& error) {
    return noteFault(kReading, error.what(), EIO);
  }
}

bool NFSExportParser::noteFault(const char* what, const std::string& why, int error) {
  faultError_ = error;
  fault_ = std::string("cannot ") + what + " " + file() + ": " + why;
  return false;
}

// That there is no file is no fault.
bool NFSExportParser::noteError(const char* what, int error) {
  fault_.clear();
  isGone_ = error == ENOENT && !isBlank(known_);
  return error == ENOENT ? false : noteFault(what, sharing_error_string(error), error);
}

NFSExportParser::WriteResult NFSExportParser::failed(const char* what, int error) {
  noteFault(what, sharing_error_string(error), error);
  return WriteResult::failed;
}

bool NFSExportParser::load() {
  std::string text;
  FileIdentity identity;
  const int error = services().textFiles->read(file(), text, identity);
  if (error != 0) return noteError(kReading, error);
  if (!isValidUtf8(text)) return noteFault(kReading, kNotUtf8, EILSEQ);
  fault_.clear();
  readLines(text);
  changes_.clear();
  // A file that has replaced the one created here belongs to another process.
  if (text != known_) createdFile_ = false;
  know(std::move(text), identity);
  return true;
}

bool NFSExportParser::loadUnlessKnown() {
  if (!knowsFile_) return loadAndRepeatChanges();
  FileIdentity present;
  const int error = services().textFiles->identify(file(), present);
  if (error == 0 && identity_.settled && present.isSameState(identity_)) return true;
  std::string text;
  const int unread = services().textFiles->read(file(), text, present);
  if (unread != 0) return noteError(kReading, unread);
  if (text != known_) return loadAndRepeatChanges();
  fault_.clear();
  isGone_ = false;
  identity_ = present;
  return true;
}

bool NFSExportParser::loadAndRepeatChanges() {
  const std::vector<Change> changes = changes_;
  if (!load()) return false;
  for (const Change& change : changes) apply(change);
  changes_ = changes;
  return true;
}

void NFSExportParser::apply(const Change& change) {
  if (const auto* path = std::get_if<std::string>(&change)) {
    lineArray_.removeAllWithPath(*path);
    return;
  }
  const auto& record = std::get<NFSExportRecordPtr>(change);
  lineArray_.removeAllWithPath(record->path());
  lineArray_.insertFirst(record);
}

void NFSExportParser::know(std::string text, const FileIdentity& identity) {
  known_ = std::move(text);
  identity_ = identity;
  knowsFile_ = true;
  isGone_ = false;
}

void NFSExportParser::readLines(std::string_view text) {
  lineArray_.clear();
  bool inBlock = false;
  // Lines of other white space stay for what stands behind them.
  std::vector<std::string> blankLines;
  const auto appendBlankLines = [&] {
    for (std::string& line : blankLines) lineArray_.append(std::move(line));
    blankLines.clear();
  };
  while (!isBlank(text)) {
    text.remove_prefix(text.find_first_not_of(kBlanksAndLineBreaks));
    const std::string_view line = firstLine(text);
    text.remove_prefix(line.size());
    if (beginsWith(line, kBeginMarker)) {
      inBlock = true;
    } else if (beginsWith(line, kEndMarker)) {
      inBlock = false;
    } else if (!inBlock && isBlank(line)) {
      blankLines.emplace_back(line);
    } else {
      appendBlankLines();
      if (inBlock) {
        lineArray_.append(NFSExportRecord::recordWithNfsExportFileLine(line));
      } else {
        lineArray_.append(std::string(line) + (line.ends_with('\n') ? "" : "\n"));
      }
    }
  }
}

NFSExportParser::Boundaries NFSExportParser::insertBoundaries() {
  if (exportCount() == 0) return {};
  const auto first = lineArray_.firstExport();
  const auto behindLast = std::next(lineArray_.lastExport());
  return {lineArray_.insertLine(first, std::string(kBeginMarker) + "\n"),
          lineArray_.insertLine(behindLast, std::string(kEndMarker) + "\n")};
}

void NFSExportParser::addManagedExportsBoundaryComments() { insertBoundaries(); }

std::string NFSExportParser::textWithBoundaries() {
  // The comments leave the lines again, also when memory runs out.
  class Scope {
   public:
    Scope(ExportLineArray& lines, Boundaries inserted)
        : lines_(lines), inserted_(std::move(inserted)) {}
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() {
      for (const auto position : inserted_) lines_.removeLine(position);
    }

   private:
    ExportLineArray& lines_;
    Boundaries inserted_;
  };
  const Scope scope(lineArray_, insertBoundaries());
  std::string text;
  std::size_t above = 0;
  for (const auto& element : lineArray_.elements()) {
    std::size_t line = text.size();
    appendTextOf(element, text);
    if (line == text.size()) continue;
    // What ended the entry above, a marker or the end of the file, is not there any more.
    const bool runsOn = takesNextLine(std::string_view(text).substr(above, line - above));
    if (runsOn && !isMarker(std::string_view(text).substr(line))) text.insert(line++, 1, '\n');
    above = line;
  }
  return text;
}

bool NFSExportParser::writeFile() { return write(false) == WriteResult::written; }

bool NFSExportParser::writeFileKeepingOthersChanges() {
  auto pause = kFirstPause;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (attempt > 0) {
      // Whoever writes it may be done then.
      std::this_thread::sleep_for(pause);
      pause *= 2;
    }
    readFileIfChanged();
    const WriteResult result = write(true);
    if (result != WriteResult::fileChanged) return result == WriteResult::written;
  }
  readFileIfChanged();
  return writeFile();
}

NFSExportParser::WriteResult NFSExportParser::write(bool unlessFileChanged) {
  if (file().empty()) return WriteResult::failed;
  fault_.clear();
  std::string present;
  FileIdentity identity;
  const int error = services().textFiles->read(file(), present, identity);
  if (error == ENOENT) {
    const std::string text = textWithBoundaries();
    if (isBlank(text)) {
      changes_.clear();  // there is nothing that a file would have to say
      return WriteResult::failed;
    }
    const std::string before = known_;
    const WriteResult result = replace(text, unlessFileChanged ? &identity : nullptr);
    createdFile_ = createdFile_ || result == WriteResult::written;
    if (result == WriteResult::written && !isBlank(before)) logMadeAnew(file(), before, text);
    return result;
  }
  if (error != 0) return failed(kReading, error);
  if (!isValidUtf8(present)) {
    noteFault(kReading, kNotUtf8, EILSEQ);
    return WriteResult::failed;
  }
  if (!knowsFile_ && !loadAndRepeatChanges()) return WriteResult::failed;
  if (unlessFileChanged && present != known_) return WriteResult::fileChanged;
  const std::string text = textWithBoundaries();
  if (text == present) {
    know(text, identity);
    changes_.clear();
    return WriteResult::written;
  }
  if (present != known_) createdFile_ = false;
  if (!keepFirstCopy()) return WriteResult::failed;
  return replace(text, unlessFileChanged ? &identity : nullptr);
}

NFSExportParser::WriteResult NFSExportParser::replace(const std::string& text,
                                                      const FileIdentity* expected) {
  TextFiles::Replacement replacement;
  const int error = services().textFiles->replaceKeeping(file(), text, expected, replacement);
  std::string present = text;
  if (error == ESTALE && replacement.gaveWay) (void)services().textFiles->read(file(), present);
  // Also after an error: the file may have given way already.
  if (replacement.gaveWay) keepIfOthersChangedIt(*replacement.gaveWay, file(), known_, present);
  if (error == ESTALE) return WriteResult::fileChanged;
  if (error != 0) return failed("write", error);
  know(text, replacement.written);
  changes_.clear();
  return WriteResult::written;
}

bool NFSExportParser::keepFirstCopy() {
  if (createdFile_) return true;
  const std::string copy = file() + kCopySuffix;
  const int error = services().textFiles->copyOnce(file(), copy);
  if (error == 0 || error == EEXIST) return true;
  return noteFault("copy", copy + ": " + sharing_error_string(error), error);
}

void NFSExportParser::addOrReplaceExport(const NFSExportRecordPtr& record) {
  if (!record) return;
  changes_.emplace_back(record);
  apply(changes_.back());
}

void NFSExportParser::removeExportWithPath(const std::string& path) {
  changes_.emplace_back(path);
  lineArray_.removeAllWithPath(path);
}

NFSExportRecordPtr NFSExportParser::exportWithPath(const std::string& path) {
  return lineArray_.firstWithPath(path);
}

std::vector<NFSExportRecordPtr> NFSExportParser::exportsWithPath(const std::string& path) const {
  std::vector<NFSExportRecordPtr> found;
  for (const auto& element : lineArray_.elements()) {
    const auto* record = std::get_if<NFSExportRecordPtr>(&element);
    if (record != nullptr && (*record)->path() == path) found.push_back(*record);
  }
  return found;
}

std::string NFSExportParser::description() const {
  std::string text = "(\n";
  for (const auto& element : lineArray_.elements()) {
    text += "    ";
    appendTextOf(element, text);
  }
  return text + ")";
}

}  // namespace paddock
