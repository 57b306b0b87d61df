#include "paddock/host.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "paddock/sys_logger.h"

namespace paddock {
namespace {

class FakeHost : public Host {
 public:
  explicit FakeHost(std::string root) : root_(std::move(root)) { installHost(this); }
  ~FakeHost() override { installHost(nullptr); }

  const std::string& root() const override { return root_; }
  const Dictionary& configuration() const override { return configuration_; }
  Dictionary deliverCommand(const std::string& module, const Dictionary& command) override {
    if (module == "paddock_broken") throw 7;
    if (module != "paddock_vsp") throw std::runtime_error("no plug-in " + module);
    return {{"module", module}, {"operation", *command.string("command")}};
  }

 private:
  std::string root_;
  Dictionary configuration_;
};

class QuietLog {
 public:
  QuietLog() {
    installLogSink([this](int, const std::string& line) { lines.push_back(line); });
  }
  ~QuietLog() { installLogSink(nullptr); }
  std::vector<std::string> lines;
};

TEST(Host, PathsAreTakenBelowItsRoot) {
  EXPECT_EQ(hostPath("/etc/exports"), "/etc/exports");
  const FakeHost fake("/tmp/tree");
  EXPECT_EQ(hostPath("/etc/exports"), "/tmp/tree/etc/exports");
}

TEST(Host, AnEmptyRootIsTheSystemItself) {
  const FakeHost fake("");
  EXPECT_EQ(hostPath("/etc/exports"), "/etc/exports");
}

TEST(Host, AskingForAMissingHostThrows) { EXPECT_THROW(host(), std::logic_error); }

TEST(BundleManager, DeliversTheCommandToItsModule) {
  const FakeHost fake("");
  const auto manager = BundleManager::managerForBundle("paddock_vsp");
  EXPECT_EQ(manager.doCommand({{"command", "getState"}}, "paddock_vsp", std::nullopt),
            (Dictionary{{"module", "paddock_vsp"}, {"operation", "getState"}}));
}

TEST(BundleManager, MissingPluginGivesErrorReplyAndLogLine) {
  const QuietLog log;
  const FakeHost fake("");
  const auto manager = BundleManager::managerForBundle("paddock_nfs");
  EXPECT_EQ(manager.doCommand({{"command", "update"}}, "paddock_nfs", std::nullopt),
            (Dictionary{{"error", "no plug-in paddock_nfs"}}));
  ASSERT_EQ(log.lines.size(), 1U);
  EXPECT_EQ(log.lines[0], "command to plug-in paddock_nfs failed: no plug-in paddock_nfs");
}

TEST(BundleManager, WhateverIsThrownBecomesAnErrorReply) {
  const QuietLog log;
  const auto manager = BundleManager::managerForBundle("paddock_broken");
  EXPECT_TRUE(manager.doCommand({}, "paddock_broken", "root").contains("error"));
  const FakeHost fake("");
  EXPECT_EQ(manager.doCommand({}, "paddock_broken", "root"),
            (Dictionary{{"error", "an exception that is not a std::exception"}}));
}

}  // namespace
}  // namespace paddock
