// Commands against a scripted daemon, for tests: what they ask, what they print, how they end.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "keelhouse/keelhouse_command_line.h"
#include "support/scripted_daemon.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {

class CommandFixture : public ::testing::Test {
 protected:
  int run(std::vector<std::string> words) {
    words.insert(words.begin(), {"--socket", daemon_.socketPath()});
    return runAsIs(words);
  }
  int runAsIs(const std::vector<std::string>& words) {
    std::ostringstream out;
    std::ostringstream error;
    const int status = runKeelhouse(words, out, error);
    out_ = out.str();
    error_ = error.str();
    return status;
  }

  std::string target(std::size_t at) const { return daemon_.requests().at(at).target; }
  std::string body(std::size_t at) const { return daemon_.requests().at(at).body; }
  std::size_t asked() const { return daemon_.requests().size(); }

  std::string makeFolder(const std::string& name) {
    const auto folder = folder_.path(name);
    std::filesystem::create_directory(folder);
    return folder;
  }

  // The replies of readSettings and writeSettings with one part of the configuration.
  static std::string readPart(const std::string& key, const std::string& part, int status = 0) {
    return R"({"configuration":{")" + key + R"(":)" + part + R"(},"readStatus":)" +
           std::to_string(status) + "}";
  }
  static std::string writtenPart(const std::string& key, const std::string& part, int status = 0) {
    return R"({"configuration":{")" + key + R"(":)" + part + R"(},"readStatus":0,"writeStatus":)" +
           std::to_string(status) + "}";
  }

  TestFolder folder_;
  testing::ScriptedDaemon daemon_{folder_.path()};
  std::string out_;
  std::string error_;
};

}  // namespace paddock::keelhouse
