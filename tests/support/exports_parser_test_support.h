// Shared by the tests of the exports file: a parser on a file in memory.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "exports/nfs_export_parser.h"
#include "platform/services.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/in_memory_text_files.h"
#include "platform/testing/recording_host_services.h"

namespace paddock {

inline const std::string kBegin = std::string(kBeginMarker) + "\n";
inline const std::string kEnd = std::string(kEndMarker) + "\n";

inline NFSExportRecordPtr exportTo(const std::string& path, const std::string& host = "*") {
  auto record = std::make_shared<NFSExportRecord>();
  record->setPath(path);
  record->setClients({{host, {"ro"}}});
  return record;
}

// A clock and a log for files of exports.
class ExportsServices : public testing::Test {
 protected:
  Services servicesOn(TextFiles* files) {
    Services services;
    services.textFiles = files;
    services.logger = &logger_;
    services.clock = &clock_;
    return services;
  }

  RecordingLogger logger_;
  FakeClock clock_;
};

class ParserTest : public ExportsServices {
 protected:
  static constexpr const char* kFile = "/etc/exports";
  static constexpr const char* kCopy = "/etc/exports.before-paddock";

  ParserTest() : guard_(servicesOn(&files_)) {}

  // A parser that has read a file of this text.
  std::unique_ptr<NFSExportParser> parserOf(const std::string& text) {
    files_.setFile(kFile, text);
    return NFSExportParser::parserWithFile(kFile);
  }
  // What the parser writes over a file that it has read.
  std::string written(NFSExportParser& parser) {
    EXPECT_TRUE(parser.writeFile());
    return files_.contents(kFile);
  }
  std::string rewritten(const std::string& text) { return written(*parserOf(text)); }

  InMemoryTextFiles files_;
  ServicesGuard guard_;
};

}  // namespace paddock
