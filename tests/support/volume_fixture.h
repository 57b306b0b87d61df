// A volume for a test: a folder of its own that counts as mounted, with doubles of the services
// that quotas need. Files in it are real ones.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/file_attributes.h"
#include "platform/services.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/fake_quotas.h"
#include "platform/testing/fake_volume_info.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/recording_host_services.h"
#include "support/open_descriptors.h"
#include "support/temporary_folder.h"
#include "volumes/quota_file_format.h"

namespace paddock {

// The bytes of a quota file of `maxentries` slots with these entries at their places.
inline std::string quotaFileBytes(QuotaType type, std::uint32_t maxentries,
                                  const std::vector<QuotaEntry>& entries) {
  QuotaFileHeader header;
  header.magic = quotamagic[static_cast<std::size_t>(type)];
  header.maxentries = maxentries;
  std::vector<QuotaSlot> slots(maxentries + 1);
  slots[0] = encodeQuotaHeader(header);
  for (const QuotaEntry& entry : entries) {
    QuotaProbe probe(entry.id, maxentries);
    while (!probe.atEnd() && quotaEntryId(slots[probe.slot() + 1]) != 0) probe.next();
    slots[probe.slot() + 1] = encodeQuotaEntry(entry);
  }
  std::string bytes;
  for (const QuotaSlot& slot : slots) bytes.append(slot.begin(), slot.end());
  return bytes;
}

inline QuotaEntry usage(std::uint32_t id, std::uint64_t bytes, std::uint64_t hardLimit = 0) {
  QuotaEntry entry;
  entry.id = id;
  entry.usedBytes = bytes;
  entry.usedFiles = 1;
  entry.hardBytes = hardLimit;
  return entry;
}

// Reports only whether a real file exists.
class ExistenceOfFiles : public FileAttributeService {
 public:
  int read(const std::string&, FileAttributes&) override { return ENOTSUP; }
  int apply(const std::string&, const FileAttributeChanges&) override { return ENOTSUP; }
  bool exists(const std::string& path) override {
    return path.find('\0') == std::string::npos && std::filesystem::exists(path);
  }
  std::optional<RefusedLink> refusedLink(const std::string&) override { return refused; }

  // The reason to refuse changes of every path.
  std::optional<RefusedLink> refused;
};

class VolumeFixture : public ::testing::Test {
 protected:
  static constexpr std::uint64_t kBlock = 4096;
  static constexpr std::uint64_t kGibibyteBlocks = (1ULL << 30U) / kBlock;

  VolumeFixture() {
    volumes.mount({root(), "/dev/sdz1", "ext4"});
    setSize(1);
    accounts.addUser("alice", 1001);
    accounts.addUser("bob", 1002);
    accounts.addGroup("staff", 50);
  }

  const std::string& root() const { return folder_.path(); }
  std::string path(const std::string& name) const { return folder_.path(name); }
  std::string userFile() const { return path(".quota.user"); }
  std::string groupFile() const { return path(".quota.group"); }
  std::string userMarker() const { return path(".quota.ops.user"); }
  std::string groupMarker() const { return path(".quota.ops.group"); }

  void setSize(std::uint64_t gibibytes, std::uint64_t availableBlocks = 1000) {
    volumes.setSize(root(), kBlock, gibibytes * kGibibyteBlocks, availableBlocks);
  }
  void remount(const std::string& type) {
    volumes.unmount(root());
    volumes.mount({root(), "/dev/sdz1", type});
  }
  void writeUsers(const std::vector<QuotaEntry>& entries, std::uint32_t maxentries = 64) const {
    writeWholeFile(userFile(), quotaFileBytes(kUserQuota, maxentries, entries));
  }

  FakeVolumeInfo volumes;
  FakeQuotaControl quotas{volumes};
  FakeBrowserInformation browserInformation;
  InMemoryAccounts accounts;
  ExistenceOfFiles fileAttributes;
  RecordingProgramRunner programs;
  RecordingLogger logger;

  Services doubles() {
    Services all;
    all.volumeInfo = &volumes;
    all.quotaControl = &quotas;
    all.browserInformation = &browserInformation;
    all.accounts = &accounts;
    all.fileAttributes = &fileAttributes;
    all.programRunner = &programs;
    all.logger = &logger;
    return all;
  }

 private:
  TestFolder folder_;
  ServicesGuard guard_{doubles()};
};

}  // namespace paddock
