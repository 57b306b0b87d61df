#include "exports/nfs_export_parser.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <functional>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "base/text.h"
#include "exports/exports_line.h"
#include "platform/services.h"
#include "platform/text_file.h"

namespace paddock {

namespace {

constexpr std::string_view kWhitespaceAndNewlines = " \t\n\r\v\f";
constexpr const char* kCopySuffix = ".before-paddock";

bool beginsWith(std::string_view line, std::string_view prefix) {
  return line.substr(0, prefix.size()) == prefix;
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
    std::string text;
    if (services().textFiles->read(file(), text) != 0 || !isValidUtf8(text)) return false;
    readLines(text);
    knowsFile_ = true;
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void NFSExportParser::readLines(std::string_view text) {
  lineArray_.clear();
  bool inBlock = false;
  bool continued = false;
  while (true) {
    const std::size_t start = text.find_first_not_of(kWhitespaceAndNewlines);
    if (start == std::string_view::npos) return;
    text.remove_prefix(start);
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end);
    const bool goesOn = goesOnInNextLine(line);
    if (beginsWith(line, kBeginMarker)) {
      inBlock = true;
    } else if (beginsWith(line, kEndMarker)) {
      inBlock = false;
    } else if (inBlock) {
      lineArray_.append(continued ? NFSExportRecord::recordWithKeptLine(line)
                                  : NFSExportRecord::recordWithNfsExportFileLine(line));
    } else {
      lineArray_.append(std::string(line) + '\n');
    }
    continued = goesOn;
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
  for (const auto& element : lineArray_.elements()) appendTextOf(element, text);
  return text;
}

// What was added while there was no file goes to the top of the one that has come.
bool NFSExportParser::takeOverUnreadFile() {
  std::vector<NFSExportRecordPtr> added;
  for (const auto& element : lineArray_.elements()) {
    if (const auto* record = std::get_if<NFSExportRecordPtr>(&element)) added.push_back(*record);
  }
  if (!readFile()) return false;
  std::reverse(added.begin(), added.end());
  for (const auto& record : added) addOrReplaceExport(record);
  return true;
}

bool NFSExportParser::writeFile() {
  if (file().empty()) return false;
  std::string present;
  const int error = services().textFiles->read(file(), present);
  if (error == ENOENT) {
    const std::string text = textWithBoundaries();
    if (isBlank(text) || !replace(text)) return false;
    knowsFile_ = createdFile_ = true;
    return true;
  }
  if (error != 0 || !isValidUtf8(present)) return false;
  if (!knowsFile_ && !takeOverUnreadFile()) return false;
  const std::string text = textWithBoundaries();
  return text == present || write(text, present);
}

bool NFSExportParser::replace(const std::string& text) {
  if (services().textFiles->replace(file(), text) != 0) return false;
  written_ = std::hash<std::string>()(text);
  return true;
}

bool NFSExportParser::write(const std::string& text, const std::string& present) {
  // A file that was put in the place of the one that we made is somebody else's.
  if (createdFile_ && std::hash<std::string>()(present) != written_) createdFile_ = false;
  if (!createdFile_) {
    const int error = services().textFiles->copyOnce(file(), file() + kCopySuffix);
    if (error != 0 && error != EEXIST) return false;
  }
  return replace(text);
}

void NFSExportParser::addOrReplaceExport(const NFSExportRecordPtr& record) {
  if (!record) return;
  removeExportWithPath(record->path());
  lineArray_.insertFirst(record);
}

void NFSExportParser::removeExportWithPath(const std::string& path) {
  lineArray_.removeAllWithPath(path);
}

NFSExportRecordPtr NFSExportParser::exportWithPath(const std::string& path) {
  return lineArray_.firstWithPath(path);
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
