#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "exports/nfs_export_parser.h"
#include "platform/services.h"
#include "platform/testing/in_memory_text_files.h"

namespace {

using paddock::ExportsLine;
using paddock::InMemoryTextFiles;
using paddock::kBeginMarker;
using paddock::kEndMarker;
using paddock::NFSExportParser;
using paddock::NFSExportRecord;
using paddock::readExportsLine;
using paddock::Services;
using paddock::ServicesGuard;
using paddock::writeExportsLine;

constexpr const char* kFile = "/etc/exports";

void require(bool holds) {
  if (!holds) std::abort();
}

// A line is written back as it was read; its dictionary makes an equal record; an export that
// can be written anew reads back the same.
void checkLine(const std::string& line) {
  const auto record = NFSExportRecord::recordWithNfsExportFileLine(line);
  const std::string written = record->nfsExportFileLine();
  require(line.empty() ? written.empty() : written == line + "\n");
  const auto copy = NFSExportRecord::recordWithDictionary(record->dictionary());
  require(copy->dictionary() == record->dictionary());
  if (record->path().empty() || !copy->isValid()) return;
  const ExportsLine read{record->path(), record->clients()};
  require(readExportsLine(writeExportsLine(read)) == read);
}

// The lines that are no markers, without indentation.
std::string linesByHand(const std::string& text) {
  std::string lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::size_t begin = std::min(text.find_first_not_of(" \t", at), end);
    const std::string line = text.substr(begin, end - begin);
    const bool isMarker = line.starts_with(kBeginMarker) || line.starts_with(kEndMarker);
    if (line.find_first_not_of(" \t\r\v\f") != std::string::npos && !isMarker) lines += line + "\n";
    at = end + 1;
  }
  return lines;
}

// What was written reads as the same lines, and writing those changes nothing more.
void checkFile(const std::string& text) {
  InMemoryTextFiles files;
  Services services;
  services.textFiles = &files;
  const ServicesGuard guard(services);
  files.setFile(kFile, text);
  const auto first = NFSExportParser::parserWithFile(kFile);
  const bool written = first->writeFile();
  if (!written) {
    require(files.contents(kFile) == text);
    return;
  }
  const std::string once = files.contents(kFile);
  require(linesByHand(once) == linesByHand(text));
  const auto second = NFSExportParser::parserWithFile(kFile);
  // Lines with open quotes become one when a marker that stood between them goes.
  const bool hasQuotes = text.find('"') != std::string::npos;
  require(hasQuotes || second->exportCount() >= first->exportCount());
  require(second->writeFile() && (hasQuotes || files.contents(kFile) == once));
  require(linesByHand(files.contents(kFile)) == linesByHand(text));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    checkLine(text.substr(at, end - at));
    at = end + 1;
  }
  checkFile(text);
  return 0;
}
