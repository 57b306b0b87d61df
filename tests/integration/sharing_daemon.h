// A running daemon with the sharing plug-in, or others, below a tree of its own. The program that
// includes this defines PADDOCK_BUNDLES.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "integration/running_daemon.h"
#include "wire/json.h"

namespace paddock::testing {

class SharingDaemon {
 public:
  explicit SharingDaemon(const std::string& configuration = {},
                         const std::vector<std::string>& plugins = {"paddock_sharing"}) {
    namespace fs = std::filesystem;
    fs::create_directories(tree_.path("/etc"));
    for (const std::string& plugin : plugins) {
      const std::string below = plugin + ".bundle/Contents";
      const std::string contents = tree_.path("/usr/share/paddockd/bundles/") + below;
      fs::create_directories(contents);
      fs::copy_file(std::string(PADDOCK_BUNDLES) + "/" + below + "/" + plugin + ".so",
                    contents + "/" + plugin + ".so");
    }
    if (!configuration.empty()) tree_.configure(configuration);
    start();
  }
  // Errors that a sanitizer finds at exit are reported there.
  ~SharingDaemon() { stop(); }
  SharingDaemon(const SharingDaemon&) = delete;
  SharingDaemon& operator=(const SharingDaemon&) = delete;

  const DaemonTree& tree() const { return tree_; }
  std::string log() const { return daemon_->log(); }
  pid_t process() const { return daemon_->process(); }
  // Does nothing when it was stopped before.
  void stop() {
    if (!daemon_->running()) return;
    EXPECT_EQ(daemon_->stop(), 0) << daemon_->log();
  }
  void restart() {
    stop();
    start();
  }

  // Without an orderly shutdown.
  void killAndStart() {
    daemon_->signal(SIGKILL);
    daemon_->wait();
    start();
  }

  // The whole response of an operation of the sharing plug-in, whatever it is.
  Response post(const std::string& operation, const std::string& body,
                const std::string& headers = {}) const {
    return daemon_->post("/v1/paddock_sharing/" + operation, body, headers);
  }
  // The reply of an operation of the sharing plug-in.
  Dictionary ask(const std::string& operation, const Dictionary& request) const {
    return askPlugin("paddock_sharing", operation, request);
  }
  Dictionary askPlugin(const std::string& plugin, const std::string& operation,
                       const Dictionary& request) const {
    const Response response =
        daemon_->post("/v1/" + plugin + "/" + operation, wire::writeJson(request));
    EXPECT_EQ(response.status, 200) << response.body;
    return response.dictionary();
  }
  // The reply of reading the settings of a folder.
  Dictionary readSettings(const std::string& path) const {
    return ask("readSettings", selecting(path));
  }
  // The reply of writing them.
  Dictionary writeSettings(const std::string& path, const Dictionary& configuration) const {
    Dictionary request = selecting(path);
    request.set("configuration", configuration);
    return ask("writeSettings", request);
  }

 private:
  static Dictionary selecting(const std::string& path) {
    return {{"optionalArguments", Dictionary{{"path", path}}}};
  }
  void start() {
    daemon_.emplace(tree_);
    EXPECT_TRUE(daemon_->running()) << daemon_->log();
  }
  DaemonTree tree_;
  std::optional<RunningDaemon> daemon_;
};

}  // namespace paddock::testing
