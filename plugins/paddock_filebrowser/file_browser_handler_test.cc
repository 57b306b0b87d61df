#include "paddock_filebrowser/file_browser_handler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <thread>

#include "platform/directory.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/forwarding_directory.h"
#include "platform/testing/in_memory_directory.h"
#include "support/plugin_host.h"

namespace paddock {

namespace {

Status checkHost(const std::string& host) { return checkNfsMount({host, "/export", "/mnt"}); }
Status checkExport(const std::string& path) { return checkNfsMount({"server", path, "/mnt"}); }
Status checkMountPoint(const std::string& path) {
  return checkNfsMount({"server", "/export", path});
}

TEST(NfsMountCheck, TakesNamesAndAddressesAsHosts) {
  for (const std::string& host :
       {std::string("server"), std::string("server.example.org"), std::string("10.0.0.1"),
        std::string("a-b_c"), std::string("s\xc3\xa9rver"), std::string("$(x)"),
        std::string(255, 'h')}) {
    EXPECT_EQ(checkHost(host), 0) << host;
  }
}

TEST(NfsMountCheck, RefusesOtherHosts) {
  for (const std::string& host :
       {std::string(), std::string(" "), std::string("a b"), std::string("a:b"), std::string("::1"),
        std::string("a/b"), std::string("/"), std::string("-o"), std::string("a\nb"),
        std::string("a\tb"), std::string("a\0b", 3), std::string("a\x7f"), std::string("a\xff"),
        std::string(256, 'h')}) {
    EXPECT_EQ(checkHost(host), EINVAL) << host;
  }
}

TEST(NfsMountCheck, TakesAbsolutePaths) {
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

TEST(NfsMountCheck, RefusesOtherPaths) {
  for (const std::string& path :
       {std::string(), std::string("srv"), std::string("."), std::string(" /srv"),
        std::string("/."), std::string("/.."), std::string("/srv/../etc"), std::string("/srv/./a"),
        std::string("/srv/.."), std::string("/a\nb"), std::string("/a\0b", 4),
        std::string("/a\x1b[2J"), std::string("/a\xff"), "/" + std::string(4095, 'p')}) {
    EXPECT_EQ(checkExport(path), EINVAL) << path;
    EXPECT_EQ(checkMountPoint(path), EINVAL) << path;
  }
}

class MountRecordCreation : public ::testing::Test {
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

TEST_F(MountRecordCreation, IsNamedByHostAndExport) {
  write({"server", "/export", "/nfs_reshares/r"});
  EXPECT_EQ(records(), (std::vector{record("server:/export", "/nfs_reshares/r")}));
}

TEST_F(MountRecordCreation, ThatIsThereStaysAsItIs) {
  write({"server", "/export", "/nfs_reshares/r"});
  write({"server", "/export", "/nfs_reshares/r"});
  write({"SERVER", "/Export", "/elsewhere"});
  EXPECT_EQ(records(), (std::vector{record("server:/export", "/nfs_reshares/r")}));
}

TEST_F(MountRecordCreation, EachExportHasItsOwn) {
  write({"server", "/a", "/nfs_reshares/a"});
  write({"server", "/b", "/nfs_reshares/b"});
  EXPECT_EQ(records().size(), 2U);
}

TEST_F(MountRecordCreation, IsCompleteOrNotThereWhicheverCallFails) {
  for (std::size_t call = 1;; ++call) {
    ASSERT_LT(call, 100U);
    FaultPlan plan(call);
    plan.setError(ENOSPC);
    ForwardingDirectory faulty(directory_, plan);
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

using ::testing::HasSubstr;

constexpr const char* kHost = "nfsServerHostName";
constexpr const char* kExport = "nfsExportPath";
constexpr const char* kReshare = "nfsResharePath";

const Dictionary kRequest{{kHost, "server"}, {kExport, "/export"}, {kReshare, "/nfs_reshares/r"}};
const Dictionary kDone{{"status", 0}};
const Dictionary kRefused{{"status", EINVAL}, {"error", std::strerror(EINVAL)}};

class FileBrowserHandler : public ::testing::Test {
 protected:
  Dictionary write(const Dictionary& request) {
    return handler_.performOperation("nfsWriteMountRec", request);
  }
  std::string database() const { return host_.path("/var/lib/paddock/directory.sqlite"); }
  // The mounts of the directory below the root.
  Array mounts() const {
    LinuxDirectoryOptions options;
    options.databasePath = database();
    LinuxDirectoryService directory(options);
    return directory.openLocal()->localNode()->findRecordNames(
        kRecordsAll, {schema::kRecordName, schema::kVfsLinkDir, schema::kVfsType}, schema::kMounts,
        MatchType::caseInsensitiveExact);
  }

  PluginHost host_;
  FileBrowserRequestHandler handler_;
};

TEST_F(FileBrowserHandler, ItsOneOperationChanges) {
  const auto operations = handler_.operations();
  ASSERT_EQ(operations.size(), 1U);
  EXPECT_EQ(operations[0].name, "nfsWriteMountRec");
  EXPECT_TRUE(operations[0].changes);
}

TEST_F(FileBrowserHandler, AnUnknownOperationIsAnInvalidArgument) {
  EXPECT_THROW(handler_.performOperation("getState", {}), std::invalid_argument);
}

TEST_F(FileBrowserHandler, CreatesRecordInDirectoryBelowRoot) {
  EXPECT_EQ(write(kRequest), kDone);
  const Array records = mounts();
  ASSERT_EQ(records.size(), 1U);
  Dictionary record = *records.front().dictionary();
  record.erase(schema::kRecordType);
  EXPECT_EQ(record, (Dictionary{{schema::kRecordName, Array{"server:/export"}},
                                {schema::kVfsLinkDir, Array{"/nfs_reshares/r"}},
                                {schema::kVfsType, Array{"nfs"}}}));
}

TEST_F(FileBrowserHandler, TheSameRequestAgainChangesNothing) {
  EXPECT_EQ(write(kRequest), kDone);
  const Array before = mounts();
  EXPECT_EQ(write(kRequest), kDone);
  EXPECT_EQ(mounts(), before);
}

TEST_F(FileBrowserHandler, EveryKeyIsNeededAsAString) {
  for (const char* key : {kHost, kExport, kReshare}) {
    Dictionary request = kRequest;
    request.erase(key);
    EXPECT_EQ(write(request), kRefused) << key << " missing";
    for (const Value& wrong : {Value(""), Value(7), Value(true), Value(Array{"server"}),
                               Value(Dictionary{}), Value(Data{{'a'}})}) {
      request.set(key, wrong);
      EXPECT_EQ(write(request), kRefused) << key;
    }
  }
  EXPECT_EQ(write({}), kRefused);
  EXPECT_TRUE(mounts().empty());
}

TEST_F(FileBrowserHandler, HostileValuesAreRefused) {
  for (const auto& [key, value] :
       {std::pair{kHost, "-o,exec"}, std::pair{kHost, "a\nb"}, std::pair{kHost, "../../etc"},
        std::pair{kExport, "/a/../../etc"}, std::pair{kReshare, "/nfs_reshares/../etc"},
        std::pair{kReshare, "relative"}, std::pair{kReshare, "/a\x1b]0;x"}}) {
    Dictionary request = kRequest;
    request.set(key, value);
    EXPECT_EQ(write(request), kRefused) << value;
  }
  EXPECT_TRUE(mounts().empty());
}

TEST_F(FileBrowserHandler, DamagedDirectoryReturnsStatusAndLogsLine) {
  EXPECT_EQ(write(kRequest), kDone);
  std::ofstream(database(), std::ios::trunc) << std::string(8192, 'x');
  Dictionary other = kRequest;
  other.set(kExport, "/other");
  EXPECT_EQ(write(other), (Dictionary{{"status", EIO}, {"error", std::strerror(EIO)}}));
  EXPECT_THAT(host_.log(), HasSubstr("paddock_filebrowser: "));
}

TEST_F(FileBrowserHandler, ManyAtOnceMakeOneRecord) {
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([this] { EXPECT_EQ(write(kRequest), kDone); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mounts().size(), 1U);
}

}  // namespace

}  // namespace paddock
