// keelhouse, and the tree in which paddockd runs with its own plug-ins. Needs root.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "integration/running_daemon.h"
#include "support/run_to_end.h"
#include "support/temporary_folder.h"

namespace paddock::testing {

// Everything but the daemon.
class KeelhouseTree : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may administer the daemon without a group";
    for (const char* name :
         {"paddock_sharing", "paddock_directory", "paddock_files", "paddock_services"})
      installPlugin(name);
    for (const char* folder : {"/etc", "/usr/sbin"}) {
      std::filesystem::create_directories(tree_.path(folder));
    }
    std::filesystem::copy_file(KEELHOUSE_PROGRAM, tree_.path("/usr/sbin/keelhouse"));
  }

  // The output of a command that is to succeed.
  std::string done(std::vector<std::string> words) const {
    const EndedProgram ended = keelhouse(std::move(words));
    EXPECT_EQ(ended.status, 0) << ended.error;
    EXPECT_EQ(complaints(ended.error), "");
    return ended.output;
  }

  // What keelhouse says besides what is served, of which a tree of its own knows little.
  static std::string complaints(const std::string& error) {
    std::string lines;
    std::istringstream text(error);
    for (std::string line; std::getline(text, line);) {
      if (line.starts_with("keelhouse: ")) lines += line + "\n";
    }
    return lines;
  }

  EndedProgram keelhouse(std::vector<std::string> words, const std::string& input = {}) const {
    words.insert(words.begin(), tree_.path("/usr/sbin/keelhouse"));
    return runProgram(words, input);
  }

  std::string makeFolder(const std::string& name) const {
    std::filesystem::create_directories(folder_.path(name));
    return folder_.path(name);
  }

  void installPlugin(const std::string& name) const {
    const std::string below = name + ".bundle/Contents/";
    const std::string contents = tree_.path("/usr/share/paddockd/bundles/") + below;
    std::filesystem::create_directories(contents);
    std::filesystem::copy_file(std::string(PADDOCK_BUNDLES) + "/" + below + name + ".so",
                               contents + name + ".so");
  }

  TestFolder folder_;
  DaemonTree tree_;
};

class KeelhouseFixture : public KeelhouseTree {
 protected:
  void SetUp() override {
    KeelhouseTree::SetUp();
    if (!IsSkipped() && !HasFatalFailure()) startDaemon();
  }

  // Also again, after its end.
  void startDaemon() {
    daemon_.emplace(tree_);
    ASSERT_TRUE(daemon_->running()) << daemon_->log();
  }

  std::optional<RunningDaemon> daemon_;
};

}  // namespace paddock::testing
