// The module's surroundings for a test: a double of every platform service, installed for the
// test's life, each seen by one trace. What a test sets up and looks at goes past the trace.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "base/value.h"
#include "exports/shared_exports_parser.h"
#include "exports/shared_exports_parser_testing.h"
#include "platform/directory.h"
#include "platform/linux/process/case_fold.h"
#include "platform/services.h"
#include "platform/testing/fake_browser_information.h"
#include "platform/testing/fake_clock.h"
#include "platform/testing/fake_host_name.h"
#include "platform/testing/fake_quota_control.h"
#include "platform/testing/fake_uuid_source.h"
#include "platform/testing/fake_volume_info.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_acl.h"
#include "platform/testing/in_memory_directory.h"
#include "platform/testing/in_memory_file_attributes.h"
#include "platform/testing/in_memory_file_tree.h"
#include "platform/testing/in_memory_membership.h"
#include "platform/testing/in_memory_metadata_stores.h"
#include "platform/testing/in_memory_privileged_objects.h"
#include "platform/testing/in_memory_shared_file_list.h"
#include "platform/testing/in_memory_status_files.h"
#include "platform/testing/in_memory_text_files.h"
#include "platform/testing/recording_logger.h"
#include "platform/testing/recording_net_services.h"
#include "platform/testing/recording_plugin_commands.h"
#include "platform/testing/recording_program_runner.h"
#include "store/schema.h"
#include "support/service_trace.h"

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

// Every double of the platform services, and the services that they make together.
struct ModuleDoubles {
  InMemoryDirectory directory{caseFold};
  InMemoryMembership membership;
  FakeVolumeInfo volumes;
  FakeHostName hostName;
  RecordingProgramRunner programs;
  RecordingPluginCommands plugins;
  RecordingLogger logger;
  FakeClock clock;
  FakeUuidSource uuids;
  InMemorySharedFileLists sharedFiles;
  InMemoryTextFiles files;
  InMemoryAccounts accounts;
  // Shared folders; the exports file and other files of the module's own are in `files`.
  InMemoryFileTree tree;
  InMemoryFileAttributes fileAttributes{tree, accounts};
  InMemoryAcl acl{tree};
  InMemoryPrivilegedObjects privilegedObjects{tree, acl};
  InMemoryStatusFiles statusFiles;
  InMemoryMetadataStores stores;
  RecordingNetServices netServices;
  // Quota files and markers are real files: a test names a real folder.
  FakeQuotaControl quotaControl{volumes};
  FakeBrowserInformation browserInformation;

  Services services() {
    Services all;
    all.directory = &directory;
    all.membership = &membership;
    all.volumeInfo = &volumes;
    all.hostName = &hostName;
    all.programRunner = &programs;
    all.pluginCommands = &plugins;
    all.logger = &logger;
    all.clock = &clock;
    all.uuidSource = &uuids;
    all.sharedFileLists = &sharedFiles;
    all.textFiles = &files;
    all.accounts = &accounts;
    all.fileAttributes = &fileAttributes;
    all.acl = &acl;
    all.privilegedObjects = &privilegedObjects;
    all.statusFiles = &statusFiles;
    all.metadataStores = &stores;
    all.netServices = &netServices;
    all.quotaControl = &quotaControl;
    all.browserInformation = &browserInformation;
    all.exportsPath = kExportsPath;
    return all;
  }

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

class ModuleFixture : public ::testing::Test {
 protected:
  ModuleFixture() { resetSharedExportsParserForTesting(); }
  ~ModuleFixture() override {
    EXPECT_EQ(acl.unreleased(), 0U);
    resetSharedExportsParserForTesting();
  }

 private:
  ModuleDoubles doubles_;

 protected:
  ServiceTrace trace;
  InMemoryDirectory& directory = doubles_.directory;
  FakeVolumeInfo& volumes = doubles_.volumes;
  FakeHostName& hostName = doubles_.hostName;
  RecordingPluginCommands& plugins = doubles_.plugins;
  RecordingLogger& logger = doubles_.logger;
  FakeUuidSource& uuids = doubles_.uuids;
  InMemorySharedFileLists& sharedFiles = doubles_.sharedFiles;
  InMemoryTextFiles& files = doubles_.files;
  RecordingProgramRunner& programs = doubles_.programs;
  InMemoryMembership& membership = doubles_.membership;
  InMemoryAccounts& accounts = doubles_.accounts;
  InMemoryFileTree& tree = doubles_.tree;
  InMemoryAcl& acl = doubles_.acl;
  InMemoryPrivilegedObjects& privilegedObjects = doubles_.privilegedObjects;
  InMemoryStatusFiles& statusFiles = doubles_.statusFiles;
  InMemoryMetadataStores& stores = doubles_.stores;
  RecordingNetServices& netServices = doubles_.netServices;
  FakeQuotaControl& quotaControl = doubles_.quotaControl;

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
    for (const auto& record : doubles_.records(type, node)) names.push_back(record.name);
    return names;
  }
  std::vector<std::string> sharePointNames() { return recordNames(schema::kSharePoints); }
  // The attributes of a record, its type left out; nothing when there is no such record.
  std::optional<Dictionary> attributes(const std::string& type, const std::string& name) {
    for (const auto& record : doubles_.records(type)) {
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
  // Changes the file as somebody else would; the module has not read it.
  void setExportsFile(const std::string& contents) { files.setFile(kExportsPath, contents); }
  // Changes the file and lets the module read it.
  void readExportsFile(const std::string& contents) {
    setExportsFile(contents);
    ASSERT_TRUE(shared_exports_parser().readFile());
  }

 private:
  TracedServices traced_{doubles_.services(), trace};
  ServicesGuard guard_{traced_.services()};
};

}  // namespace paddock
