#include "exports/shared_exports_parser.h"

#include <memory>

#include "platform/logger.h"
#include "platform/services.h"

namespace paddock {

namespace {

std::unique_ptr<NFSExportParser>& sharedParser() {
  static std::unique_ptr<NFSExportParser> parser;
  return parser;
}

// The condition last logged between requests.
std::string& toldFault() {
  static std::string fault;
  return fault;
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

void log_new_exports_fault() {
  const NFSExportParser& parser = shared_exports_parser();
  const std::string fault =
      parser.isGone()
          ? parser.file() +
                " is gone, removed by somebody else; the next change of a share makes it "
                "anew with the lines that it had"
          : parser.fault();
  if (fault == toldFault()) return;
  toldFault() = fault;
  if (!fault.empty()) services().logger->log(kLogError, "paddock_sharing: " + fault);
}

Status get_export_record(const std::string& path, NFSExportRecordPtr& record) {
  record = shared_exports_parser().exportWithPath(path);
  return kSuccess;
}

Status delete_export_record(const NFSExportRecordPtr& record) {
  if (record) shared_exports_parser().removeExportWithPath(record->identifier());
  return kSuccess;
}

void resetSharedExportsParserForTesting() {
  sharedParser().reset();
  toldFault().clear();
}

}  // namespace paddock
