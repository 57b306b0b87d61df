#include "paddock_filebrowser/mount_record.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/directory_schema.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/faulty_directory.h"
#include "platform/testing/in_memory_directory.h"

namespace paddock {
namespace {

Status checkHost(const std::string& host) { return checkNfsMount({host, "/export", "/mnt"}); }
Status checkExport(const std::string& path) { return checkNfsMount({"server", path, "/mnt"}); }
Status checkMountPoint(const std::string& path) {
  return checkNfsMount({"server", "/export", path});
}

TEST(NfsMountCheckTest, TakesNamesAndAddressesAsHosts) {
  for (const std::string& host :
       {std::string("server"), std::string("server.example.org"), std::string("10.0.0.1"),
        std::string("a-b_c"), std::string("s\xc3\xa9rver"), std::string("$(x)"),
        std::string(255, 'h')}) {
    EXPECT_EQ(checkHost(host), 0) << host;
  }
}

TEST(NfsMountCheckTest, RefusesOtherHosts) {
  for (const std::string& host :
       {std::string(), std::string(" "), std::string("a b"), std::string("a:b"), std::string("::1"),
        std::string("a/b"), std::string("/"), std::string("-o"), std::string("a\nb"),
        std::string("a\tb"), std::string("a\0b", 3), std::string("a\x7f"), std::string("a\xff"),
        std::string(256, 'h')}) {
    EXPECT_EQ(checkHost(host), EINVAL) << host;
  }
}

TEST(NfsMountCheckTest, TakesAbsolutePaths) {
  for (const std::string& path :
       {std::string("/"), std::string("/srv"), std::string("/srv/"), std::string("//srv"),
        std::string("/a b:c'd\"%s$(x)"), std::string("/\xf0\x9f\x93\x81"),
        std::string("/.."
                    "."),
        std::string("/.hidden/..x"), "/" + std::string(4094, 'p')}) {
    EXPECT_EQ(checkExport(path), 0) << path;
    EXPECT_EQ(checkMountPoint(path), 0) << path;
  }
}

TEST(NfsMountCheckTest, RefusesOtherPaths) {
  for (const std::string& path :
       {std::string(), std::string("srv"), std::string("."), std::string(" /srv"),
        std::string("/."), std::string("/.."), std::string("/srv/../etc"), std::string("/srv/./a"),
        std::string("/srv/.."), std::string("/a\nb"), std::string("/a\0b", 4),
        std::string("/a\x1b[2J"), std::string("/a\xff"), "/" + std::string(4095, 'p')}) {
    EXPECT_EQ(checkExport(path), EINVAL) << path;
    EXPECT_EQ(checkMountPoint(path), EINVAL) << path;
  }
}

class MountRecordTest : public ::testing::Test {
 protected:
  void write(const NfsMount& mount, DirectoryService* service = nullptr) {
    DirectoryService& directory = service != nullptr ? *service : directory_;
    writeMountRecord(*directory.openLocal()->localNode(), mount);
  }
  // The attributes of the records of mounts, their type left out.
  std::vector<Dictionary> records() {
    std::vector<Dictionary> found;
    for (const Value& answer : directory_.openLocal()->localNode()->findRecordNames(
             kRecordsAll, {kAttributesAll}, schema::kMounts, MatchType::caseInsensitiveExact)) {
      found.push_back(*answer.dictionary());
      found.back().erase(schema::kRecordType);
    }
    return found;
  }
  static Dictionary record(const std::string& name, const std::string& mountPoint) {
    return {{schema::kRecordName, Array{name}},
            {schema::kVfsLinkDir, Array{mountPoint}},
            {schema::kVfsType, Array{"nfs"}}};
  }

  InMemoryDirectory directory_{caseFold};
};

TEST_F(MountRecordTest, IsNamedByHostAndExport) {
  write({"server", "/export", "/nfs_reshares/r"});
  EXPECT_EQ(records(), (std::vector{record("server:/export", "/nfs_reshares/r")}));
}

TEST_F(MountRecordTest, ThatIsThereStaysAsItIs) {
  write({"server", "/export", "/nfs_reshares/r"});
  write({"server", "/export", "/nfs_reshares/r"});
  write({"SERVER", "/Export", "/elsewhere"});
  EXPECT_EQ(records(), (std::vector{record("server:/export", "/nfs_reshares/r")}));
}

TEST_F(MountRecordTest, EachExportHasItsOwn) {
  write({"server", "/a", "/nfs_reshares/a"});
  write({"server", "/b", "/nfs_reshares/b"});
  EXPECT_EQ(records().size(), 2U);
}

TEST_F(MountRecordTest, IsCompleteOrNotThereWhicheverCallFails) {
  for (std::size_t call = 1;; ++call) {
    ASSERT_LT(call, 100U);
    FaultPlan plan(call);
    plan.setError(ENOSPC);
    FaultyDirectory faulty(directory_, plan);
    try {
      write({"server", "/export", "/nfs_reshares/r"}, &faulty);
      EXPECT_FALSE(plan.fired()) << plan.failedCall();
    } catch (const DirectoryError& error) {
      EXPECT_EQ(error.status(), ENOSPC);
      EXPECT_TRUE(records().empty()) << plan.failedCall();
    }
    if (!plan.fired()) {
      EXPECT_GT(call, 4U);
      break;
    }
  }
  EXPECT_EQ(records().size(), 1U);
}

}  // namespace
}  // namespace paddock
