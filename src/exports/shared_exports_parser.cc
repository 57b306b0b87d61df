#include "exports/shared_exports_parser.h"

#include <memory>

#include "exports/shared_exports_parser_testing.h"
#include "platform/services.h"

namespace paddock {

namespace {

std::unique_ptr<NFSExportParser>& sharedParser() {
  static std::unique_ptr<NFSExportParser> parser;
  return parser;
}

}  // namespace

NFSExportParser& shared_exports_parser() {
  auto& parser = sharedParser();
  if (!parser) parser = NFSExportParser::initWithFile(services().exportsPath);
  return *parser;
}

void refresh_exports() {
  NFSExportParser& parser = shared_exports_parser();
  if (parser.hasUnwrittenChanges()) {
    parser.readFileWithoutRemoved();
  } else {
    parser.readFileIfChanged();
  }
}

Status get_export_record(const std::string& path, NFSExportRecordPtr& record) {
  record = shared_exports_parser().exportWithPath(path);
  return kSuccess;
}

Status delete_export_record(const NFSExportRecordPtr& record) {
  if (record) shared_exports_parser().removeExportWithPath(record->identifier());
  return kSuccess;
}

void resetSharedExportsParserForTesting() { sharedParser().reset(); }

}  // namespace paddock
