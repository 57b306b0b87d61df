// paddockd with all its plug-ins and keelhouse below a tree, and programs there that note that they
// ran. Needs root. The program that includes this defines KEELHOUSE_PROGRAM and PADDOCK_BUNDLES.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "integration/keelhouse_fixture.h"
#include "wire/json.h"

namespace paddock::testing {

class ServicesFixture : public KeelhouseTree {
 protected:
  static constexpr const char* kVspSync = "/usr/sbin/vsp-sync";
  static constexpr const char* kExportfs = "/usr/sbin/exportfs";
  static constexpr const char* kSmbSync = "/usr/libexec/samba/synchronize-shares";

  void SetUp() override {
    KeelhouseTree::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const char* name : {"paddock_vsp", "paddock_nfs", "paddock_filebrowser"}) {
      installPlugin(name);
    }
    addScript(kVspSync, note("vsp"));
    addScript(kExportfs, note("nfs $*"));
    addScript(kSmbSync, note("smb"));
  }

  // A shell script below the tree.
  void addScript(const std::string& below, const std::string& commands) const {
    tree_.write(below, "#!/bin/sh\n" + commands + "\n");
    std::filesystem::permissions(tree_.path(below), std::filesystem::perms::owner_all);
  }
  // A command of a script that notes a call.
  std::string note(const std::string& text) const {
    return "echo \"" + text + "\" >>'" + tree_.path("/calls") + "'";
  }
  std::vector<std::string> calls() const { return linesOf(tree_.read("/calls")); }
  void forgetCalls() const { tree_.write("/calls", ""); }

  // With the vsp-sync of the tree as the command of VSP.
  void startDaemon(const std::string& configuration = {}) {
    tree_.configure("[vsp]\nsync_command = [\"" + std::string(kVspSync) + "\"]\n" + configuration);
    daemon_.emplace(tree_);
    ASSERT_TRUE(daemon_->running()) << daemon_->log();
  }

  static Dictionary share(const std::string& path) {
    return {{"path", path}, {"name", std::filesystem::path(path).filename().string()}};
  }
  static Dictionary deletion(const std::string& path) {
    return {{"path", path}, {"isDeleted", true}};
  }
  // The body of a request that writes a list of share points.
  static std::string listBody(const Array& sharePoints) {
    return wire::writeJson(
        Dictionary{{"configuration", Dictionary{{"sharePointList", sharePoints}}}});
  }
  Response writeList(const Array& sharePoints) const {
    return daemon_->post("/v1/paddock_sharing/writeSettings", listBody(sharePoints));
  }
  // Writes it, and expects success without an error.
  void writtenList(const Array& sharePoints) const {
    const Response response = writeList(sharePoints);
    ASSERT_EQ(response.status, 200) << response.body;
    EXPECT_EQ(response.dictionary().integer("writeStatus"), 0) << response.body;
  }
  // The errors in the log of an answered request.
  std::vector<std::string> errorsOf(const Response& response) const {
    const std::string log = "/v1/requests/" + response.header("x-request-id") + "/log";
    const Dictionary reply = daemon_->get(log).dictionary();
    const Array* lines = reply.array("lines");
    std::vector<std::string> errors;
    if (lines == nullptr) return errors;
    for (const Value& line : *lines) {
      if (*line.dictionary()->string("level") == "error")
        errors.push_back(*line.dictionary()->string("text"));
    }
    return errors;
  }
  // How many requests for the operation the daemon carried out.
  std::size_t audited(const std::string& operation) const {
    const std::vector<std::string> lines = linesOf(tree_.read("/var/log/paddock/audit.jsonl"));
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [&operation](const std::string& line) {
          return line.find("\"operation\":\"" + operation + "\"") != std::string::npos;
        }));
  }
  bool logged(const std::string& text) const {
    return daemon_->log().find(text) != std::string::npos;
  }

  std::optional<RunningDaemon> daemon_;
};

}  // namespace paddock::testing
