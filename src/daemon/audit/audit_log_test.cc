#include "daemon/audit/audit_log.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <system_error>
#include <thread>

#include "paddock/sys_logger.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

AuditEntry someEntry() {
  AuditEntry entry;
  entry.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1700000000007));
  entry.request = "r-1";
  entry.peer = {1000, 1000, 77};
  entry.plugin = "paddock_sharing";
  entry.operation = "writeSettings";
  entry.duration = std::chrono::milliseconds(12);
  return entry;
}

TEST(AuditLine, HoldsWhatWasDoneByWhomAndWhen) {
  AuditEntry entry = someEntry();
  entry.subject.path = "/srv/a";
  entry.status = 100076;
  EXPECT_EQ(auditLine(entry), R"({"ms":12,"operation":"writeSettings","path":"/srv/a","pid":77,)"
                              R"("plugin":"paddock_sharing","request":"r-1","status":100076,)"
                              R"("time":"2023-11-14T22:13:20.007Z","uid":1000})"
                              "\n");
}

TEST(AuditLine, NamesARecordAndWhoIsBehindIt) {
  AuditEntry entry = someEntry();
  entry.subject.paths = {"/srv/a", "/srv/b"};
  entry.subject.node = "/Local";
  entry.subject.type = "users";
  entry.subject.name = "anna";
  entry.status = 0;
  entry.parent = "r-0";
  entry.peer.loginUser = 1001;
  EXPECT_EQ(auditLine(entry),
            R"({"loginuid":1001,"ms":12,"name":"anna","node":"/Local","operation":"writeSettings",)"
            R"("parent":"r-0","paths":["/srv/a","/srv/b"],"pid":77,"plugin":"paddock_sharing",)"
            R"("request":"r-1","status":0,"time":"2023-11-14T22:13:20.007Z","type":"users",)"
            R"("uid":1000})"
            "\n");
}

TEST(AuditLine, ARefusalHasNoStatus) {
  EXPECT_EQ(auditLine(someEntry()),
            R"({"ms":12,"operation":"writeSettings","pid":77,"plugin":"paddock_sharing",)"
            R"("refused":true,"request":"r-1","time":"2023-11-14T22:13:20.007Z","uid":1000})"
            "\n");
}

TEST(AuditLog, LinesAreAppended) {
  const TestFolder folder;
  writeWholeFile(folder.path("log"), "before\n");
  AuditLog log(folder.path("log"));
  log.write(someEntry());
  EXPECT_EQ(readWholeFile(folder.path("log")), "before\n" + auditLine(someEntry()));
}

TEST(AuditLog, NewestLinesAreReadFromOpenFile) {
  const TestFolder folder;
  writeWholeFile(folder.path("log"), "1\n2\n\n3\n");
  const AuditLog log(folder.path("log"));
  using Lines = std::vector<std::string>;
  EXPECT_EQ(log.newest(2), (Lines{"2", "3"}));
  EXPECT_EQ(log.newest(100), (Lines{"1", "2", "3"}));
  // Whatever has come in its place.
  std::filesystem::rename(folder.path("log"), folder.path("moved"));
  writeWholeFile(folder.path("log"), "another\n");
  EXPECT_EQ(log.newest(1), Lines{"3"});
  writeWholeFile(folder.path("moved"), "4\nhalf a li");
  EXPECT_EQ(log.newest(2), Lines{"4"});
  writeWholeFile(folder.path("moved"), "");
  EXPECT_EQ(log.newest(2), Lines{});
}

TEST(AuditLog, OfALongFileTheEndIsRead) {
  const TestFolder folder;
  const std::string line(1023, 'x');
  {
    std::ofstream file(folder.path("log"));
    for (std::size_t bytes = 0; bytes < 2 * AuditLog::kNewestBytes; bytes += 1024)
      file << line << '\n';
    file << "last\n";
  }
  const AuditLog log(folder.path("log"));
  EXPECT_EQ(log.newest(2), (std::vector<std::string>{line, "last"}));
  const auto all = log.newest(1U << 20U);
  EXPECT_LE(all.size(), AuditLog::kNewestBytes / 1024 + 1);
  EXPECT_EQ(all.front(), line);
  writeWholeFile(folder.path("log"), std::string(2 * AuditLog::kNewestBytes, 'x') + "\n");
  EXPECT_TRUE(log.newest(2).empty());
}

TEST(AuditLog, ALinkAndAFolderAreRefused) {
  const TestFolder folder;
  std::filesystem::create_symlink(folder.path("elsewhere"), folder.path("log"));
  EXPECT_THROW(AuditLog(folder.path("log")), std::system_error);
  EXPECT_THROW(AuditLog log(folder.path()), std::system_error);
}

TEST(AuditLog, FailedReopeningKeepsCurrentFile) {
  const TestFolder folder;
  installLogSink([](int, const std::string&) {});
  AuditLog log(folder.path("log"));
  std::filesystem::rename(folder.path("log"), folder.path("moved"));
  std::filesystem::create_directory(folder.path("log"));
  log.reopen();
  log.write(someEntry());
  EXPECT_EQ(readWholeFile(folder.path("moved")), auditLine(someEntry()));
  installLogSink(nullptr);
}

TEST(AuditLog, PartiallyWrittenLineDoesNotCorruptNextLine) {
  const TestFolder folder;
  int complaints = 0;
  installLogSink([&complaints](int, const std::string&) { ++complaints; });
  AuditLog log(folder.path("log"));
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto previous = ::signal(SIGXFSZ, SIG_IGN);
  rlimit tight = before;
  tight.rlim_cur = 10;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
  log.write(someEntry());
  ::setrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, previous);
  log.write(someEntry());
  installLogSink(nullptr);
  EXPECT_EQ(complaints, 1);
  const std::string line = auditLine(someEntry());
  EXPECT_EQ(readWholeFile(folder.path("log")), line.substr(0, 10) + "\n" + line);
}

TEST(AuditLog, RefusalsBeyondTenShareOneCountedLine) {
  const TestFolder folder;
  {
    AuditLog log(folder.path("log"));
    for (int count = 0; count < 500; ++count) log.writeRefusal(someEntry());
  }
  std::string expected;
  for (int count = 0; count < 10; ++count) expected += auditLine(someEntry());
  AuditEntry others = someEntry();
  others.count = 490;
  others.duration = {};
  expected += auditLine(others);
  EXPECT_EQ(readWholeFile(folder.path("log")), expected);
}

TEST(AuditLog, LinesOfSeveralThreadsDoNotMix) {
  const TestFolder folder;
  AuditLog log(folder.path("log"));
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&log] {
      for (int count = 0; count < 50; ++count) log.write(someEntry());
    });
  }
  for (int count = 0; count < 10; ++count) log.reopen();
  for (auto& thread : threads) thread.join();
  std::string expected;
  for (int count = 0; count < 200; ++count) expected += auditLine(someEntry());
  EXPECT_EQ(readWholeFile(folder.path("log")), expected);
}

}  // namespace
}  // namespace paddock
