// A tree with a directory of share points, for tests.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/directory/linux_directory.h"
#include "store/directory_access.h"
#include "support/temporary_folder.h"

namespace paddock::synchronizer {

class SharesFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    LinuxDirectoryOptions options;
    options.databasePath = root() + options.databasePath;
    node_ = LinuxDirectoryService(options).openLocal()->localNode();
  }

  const std::string& root() const { return folder_.path(); }
  std::string includeFile() const { return folder_.path("etc/samba/paddock-shares.conf"); }
  std::string text() const { return readWholeFile(includeFile()); }
  std::string database() const { return folder_.path("var/lib/paddock/directory.sqlite"); }

  void addSharePoint(const std::string& recordName, const std::string& path,
                     const std::string& nameOverSMB) {
    const auto record = node_->newRecord(recordName, schema::kSharePoints);
    record->setAttributesAndValues(
        Dictionary{{schema::kDirectoryPath, path}, {schema::kSmbName, nameOverSMB}});
  }
  void removeSharePoint(const std::string& recordName) {
    node_->findRecord(recordName, schema::kSharePoints)->removeRecord();
  }
  void addSharePoints(int count) {
    for (int number = 0; number < count; ++number) {
      const std::string name = "share" + std::to_string(number);
      addSharePoint(name, "/srv/" + name, name);
    }
  }

  void configure(const std::string& lines) const {
    std::filesystem::create_directories(folder_.path("etc/paddock"));
    writeWholeFile(folder_.path("etc/paddock/paddockd.toml"), lines);
  }
  // A script in smbcontrol's place.
  void installSmbControl(const std::string& lines) const {
    std::filesystem::create_directories(folder_.path("usr/bin"));
    writeWholeFile(folder_.path("usr/bin/smbcontrol"), "#!/bin/sh\n" + lines + "\n");
    std::filesystem::permissions(folder_.path("usr/bin/smbcontrol"), std::filesystem::perms(0755));
  }

  // The names of the sections, in their order.
  static std::vector<std::string> sectionsIn(const std::string& text) {
    std::vector<std::string> names;
    for (std::size_t at = text.find("\n["); at != std::string::npos; at = text.find("\n[", at + 1))
      names.push_back(text.substr(at + 2, text.find(']', at) - at - 2));
    return names;
  }

  TestFolder folder_;
  std::shared_ptr<DirectoryNode> node_;
};

}  // namespace paddock::synchronizer
