// A real exportfs with an exports file and a state folder of the test's own. Needs root.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/linux/files/linux_text_files.h"
#include "platform/services.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {

inline constexpr const char* kExportfs = "/usr/sbin/exportfs";
inline constexpr const char* kExportsFile = "/etc/exports";
inline constexpr const char* kStateFolder = "/var/lib/nfs";

inline std::string whyNoExportfs() {
  for (const char* needed : {kExportfs, kExportsFile, kStateFolder}) {
    if (!std::filesystem::exists(needed)) return std::string("there is no ") + needed;
  }
  return whyNoOwnMounts();
}

struct ProgramRun {
  int exitStatus = -1;
  std::string output;  // both streams
};

inline ProgramRun run(std::vector<const char*> arguments) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) throw std::runtime_error("pipe");
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], 1);
    ::dup2(ends[1], 2);
    ::close(ends[0]);
    ::close(ends[1]);
    arguments.push_back(nullptr);
    ::execv(arguments.front(), const_cast<char* const*>(arguments.data()));
    ::_exit(127);
  }
  ::close(ends[1]);
  ProgramRun result;
  std::array<char, 4096> chunk{};
  for (ssize_t count; (count = ::read(ends[0], chunk.data(), chunk.size())) > 0;) {
    result.output.append(chunk.data(), static_cast<std::size_t>(count));
  }
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

// A word of the server's table: the bytes that it writes as \ooo, each decoded once.
inline std::string decodedOnce(const std::string& word) {
  std::string text;
  for (std::size_t at = 0; at < word.size(); ++at) {
    if (word[at] != '\\') {
      text += word[at];
      continue;
    }
    text += static_cast<char>(std::stoi(word.substr(at + 1, 3), nullptr, 8));
    at += 3;
  }
  return text;
}

// The server's table: path -> client -> options, with a comma before and behind each.
using Table = std::map<std::string, std::map<std::string, std::string>>;

inline Table serversTable() {
  Table table;
  std::ifstream stream(std::string(kStateFolder) + "/etab");
  for (std::string line; std::getline(stream, line);) {
    const std::size_t tab = line.find('\t');
    const std::size_t open = line.find('(', tab);
    table[decodedOnce(line.substr(0, tab))][line.substr(tab + 1, open - tab - 1)] =
        "," + line.substr(open + 1, line.size() - open - 2) + ",";
  }
  return table;
}

class ExportfsWorld : public testing::Test {
 protected:
  // The shared folders, the exports file and the state folder lie in a file system of the test.
  void prepare() {
    mountTmpfs(folder_.path(), "16m");
    std::filesystem::create_directory(folder_.path("state"));
    std::filesystem::create_directory(folder_.path("shares"));
    writeWholeFile(folder_.path("exports"), "");
    bindMount(folder_.path("state"), kStateFolder);
    services_.textFiles = &files_;
  }

  std::string share(const std::string& name) const {
    std::string path = folder_.path("shares/" + name);
    std::filesystem::create_directories(path);
    return path;
  }

  TestFolder folder_;
  LinuxTextFiles files_;
  Services services_;
};

}  // namespace paddock
