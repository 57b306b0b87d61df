// A directory whose users and groups are given to a host: files, database and host are in a folder
// of the test's own.
#pragma once

#include <sys/stat.h>

#include <string>

#include "base/value.h"
#include "platform/directory.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/files/managed_block.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/recording_host_services.h"
#include "support/temporary_folder.h"

namespace paddock {

// The lines, as they stand in a file that holds nothing else.
inline std::string ownBlock(const std::string& lines) {
  return kManagedBlockBegin + lines + kManagedBlockEnd;
}

// The line of a user of a name and an id alone.
inline std::string plainUserLine(const std::string& name, const std::string& id) {
  return name + ":x:" + id + ":65534::/nonexistent:/usr/sbin/nologin\n";
}

struct ExtraUsersWorld {
  ExtraUsersWorld() {
    writeWholeFile(hostPath("passwd"), "root:x:0:0:root:/root:/bin/bash\n");
    writeWholeFile(hostPath("group"), "root:x:0:\nshadow:x:42:\n");
  }

  std::string hostPath(const std::string& name) const { return folder.path("host-" + name); }
  std::string extraFolder() const { return folder.path("extrausers"); }
  std::string path(const std::string& name) const { return extraFolder() + "/" + name; }
  std::string contents(const std::string& name) const { return readWholeFile(path(name)); }

  ExtraUsersOptions options() {
    ExtraUsersOptions options;
    options.folder = extraFolder();
    options.lockPath = folder.path("lock");
    options.clock = &clock;
    options.logger = &logger;
    options.hostPasswdPath = hostPath("passwd");
    options.hostGroupPath = hostPath("group");
    options.nss.configurationPath = hostPath("nsswitch.conf");
    return options;
  }
  LinuxDirectoryOptions directoryOptions() {
    LinuxDirectoryOptions all;
    all.databasePath = folder.path("directory.sqlite");
    all.pam.reset();
    all.extraUsers = options();
    return all;
  }

  static void put(LinuxDirectoryService& service, const char* type, const std::string& name,
                  const Dictionary& attributes) {
    const auto node = service.openLocalNode();
    auto record = node->findRecord(name, type);
    if (!record) record = node->newRecord(name, type);
    record->setAttributesAndValues(attributes);
  }
  static void putUser(LinuxDirectoryService& service, const std::string& name,
                      const std::string& id) {
    put(service, schema::kUsers, name, {{schema::kUniqueID, id}});
  }

  TestFolder folder;
  FakeClock clock;
  RecordingLogger logger;
};

}  // namespace paddock
