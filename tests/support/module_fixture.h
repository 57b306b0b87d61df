// The module's environment for a test: a double of every platform service, installed for the test's
// life, each seen by one trace. What a test sets up and inspects bypasses the trace.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "base/value.h"
#include "exports/shared_exports_parser.h"
#include "platform/directory.h"
#include "platform/linux/process/case_fold.h"
#include "platform/services.h"
#include "platform/testing/service_doubles.h"
#include "platform/testing/service_trace.h"
#include "store/directory_access.h"

namespace paddock {

inline constexpr const char* kExportsPath = "/etc/exports";
inline constexpr const char* kBeginLine =
    "###  [  Begin Keelhouse managed exports.  Do Not Edit.\n";
inline constexpr const char* kEndLine = "###  ]  End Keelhouse managed exports.\n";

// A file with one managed block of these lines.
inline std::string managedBlock(const std::vector<std::string>& lines) {
  std::string text = kBeginLine;
  for (const std::string& line : lines) text += line + "\n";
  return text + kEndLine;
}

// An export in its dictionary form, for one client.
inline Dictionary exportTo(const std::string& host, const Array& options) {
  return {{"clients", Array{Dictionary{{"host", host}, {"options", options}}}}};
}

// Every double of the platform services, with the case folding of the Linux platform.
struct ModuleDoubles : ServiceDoubles {
  ModuleDoubles() : ServiceDoubles(caseFold) {}

  // One record: its attributes, its type left out.
  struct Record {
    std::string name;
    Dictionary attributes;
    friend bool operator==(const Record&, const Record&) = default;
  };
  std::vector<Record> records(const std::string& type, const std::string& node = "/Local") {
    const Array answers = directory.openLocal()->findNode(node)->findRecordNames(
        kRecordsAll, {kAttributesAll}, type, MatchType::caseInsensitiveExact);
    std::vector<Record> found;
    for (const Value& answer : answers) {
      Dictionary attributes = *answer.dictionary();
      attributes.erase("dsAttrTypeStandard:RecordType");
      const std::string name = *attributes.array(schema::kRecordName)->front().string();
      found.push_back({name, std::move(attributes)});
    }
    return found;
  }
};

class ModuleFixture : public ::testing::Test, protected ModuleDoubles {
 protected:
  ModuleFixture() { resetSharedExportsParserForTesting(); }
  ~ModuleFixture() override {
    EXPECT_EQ(acl.unreleased(), 0U);
    resetSharedExportsParserForTesting();
  }

  ServiceTrace trace;

  void addRecord(const std::string& type, const std::string& name,
                 const Dictionary& attributes = {}) {
    directory.addRecord("/Local", type, name, attributes);
  }
  void addSharePoint(const std::string& name, const std::string& path,
                     const Dictionary& attributes = {}) {
    Dictionary all = attributes;
    all.set(schema::kDirectoryPath, path);
    addRecord(schema::kSharePoints, name, all);
  }
  void removeRecord(const std::string& type, const std::string& name) {
    directory.openLocal()->localNode()->findRecord(name, type)->removeRecord();
  }

  std::vector<std::string> recordNames(const std::string& type,
                                       const std::string& node = "/Local") {
    std::vector<std::string> names;
    for (const auto& record : records(type, node)) names.push_back(record.name);
    return names;
  }
  std::vector<std::string> sharePointNames() { return recordNames(schema::kSharePoints); }
  // The attributes of a record, its type left out; nothing when there is no such record.
  std::optional<Dictionary> attributes(const std::string& type, const std::string& name) {
    for (const auto& record : records(type)) {
      if (record.name == name) return record.attributes;
    }
    return std::nullopt;
  }
  std::optional<Dictionary> sharePoint(const std::string& name) {
    return attributes(schema::kSharePoints, name);
  }
  // The values of an attribute; none when the record or the attribute is not there.
  Array values(const std::string& type, const std::string& name, const std::string& attribute) {
    const auto all = attributes(type, name);
    const Array* found = all ? all->array(attribute) : nullptr;
    return found != nullptr ? *found : Array{};
  }
  Array valuesOfSharePoint(const std::string& name, const std::string& attribute) {
    return values(schema::kSharePoints, name, attribute);
  }

  std::string exportsFile() const { return files.contents(kExportsPath); }
  // Changes the file as another process would; the module has not read it.
  void setExportsFile(const std::string& contents) { files.setFile(kExportsPath, contents); }
  // Changes the file and lets the module read it.
  void readExportsFile(const std::string& contents) {
    setExportsFile(contents);
    ASSERT_TRUE(shared_exports_parser().readFile());
  }

 private:
  ForwardingServices traced_{aggregate(), trace};
  ServicesGuard guard_{traced_.services()};
};

}  // namespace paddock
