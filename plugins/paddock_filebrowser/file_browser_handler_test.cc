#include "paddock_filebrowser/file_browser_handler.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <thread>

#include "platform/directory_schema.h"
#include "platform/linux/directory/linux_directory.h"
#include "support/plugin_host.h"

namespace paddock {
namespace {

using ::testing::HasSubstr;

constexpr const char* kHost = "nfsServerHostName";
constexpr const char* kExport = "nfsExportPath";
constexpr const char* kReshare = "nfsResharePath";

const Dictionary kRequest{{kHost, "server"}, {kExport, "/export"}, {kReshare, "/nfs_reshares/r"}};
const Dictionary kDone{{"status", 0}};
const Dictionary kRefused{{"status", EINVAL}, {"error", std::strerror(EINVAL)}};

class FileBrowserHandlerTest : public ::testing::Test {
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

TEST_F(FileBrowserHandlerTest, ItsOneOperationChanges) {
  const auto operations = handler_.operations();
  ASSERT_EQ(operations.size(), 1U);
  EXPECT_EQ(operations[0].name, "nfsWriteMountRec");
  EXPECT_TRUE(operations[0].changes);
}

TEST_F(FileBrowserHandlerTest, AnUnknownOperationIsAnInvalidArgument) {
  EXPECT_THROW(handler_.performOperation("getState", {}), std::invalid_argument);
}

TEST_F(FileBrowserHandlerTest, TheRecordIsMadeInTheDirectoryBelowTheRoot) {
  EXPECT_EQ(write(kRequest), kDone);
  const Array records = mounts();
  ASSERT_EQ(records.size(), 1U);
  Dictionary record = *records.front().dictionary();
  record.erase(schema::kRecordType);
  EXPECT_EQ(record, (Dictionary{{schema::kRecordName, Array{"server:/export"}},
                                {schema::kVfsLinkDir, Array{"/nfs_reshares/r"}},
                                {schema::kVfsType, Array{"nfs"}}}));
}

TEST_F(FileBrowserHandlerTest, TheSameRequestAgainChangesNothing) {
  EXPECT_EQ(write(kRequest), kDone);
  const Array before = mounts();
  EXPECT_EQ(write(kRequest), kDone);
  EXPECT_EQ(mounts(), before);
}

TEST_F(FileBrowserHandlerTest, EveryKeyIsNeededAsAString) {
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

TEST_F(FileBrowserHandlerTest, HostileValuesAreRefused) {
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

TEST_F(FileBrowserHandlerTest, ADamagedDirectoryIsAStatusAndALineInTheLog) {
  EXPECT_EQ(write(kRequest), kDone);
  std::ofstream(database(), std::ios::trunc) << std::string(8192, 'x');
  Dictionary other = kRequest;
  other.set(kExport, "/other");
  EXPECT_EQ(write(other), (Dictionary{{"status", EIO}, {"error", std::strerror(EIO)}}));
  EXPECT_THAT(host_.log(), HasSubstr("paddock_filebrowser: "));
}

TEST_F(FileBrowserHandlerTest, ManyAtOnceMakeOneRecord) {
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
