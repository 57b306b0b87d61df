#include "integration/daemon_tree.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kOpenToAll = 0755;

}  // namespace

DaemonTree::DaemonTree() {
  std::string name = "/tmp/pdXXXXXX";
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  root_ = name;
  // Other users must reach the socket.
  ::chmod(root_.c_str(), kOpenToAll);
  addPlugin("test_good");
  addPlugin("test_sibling");
  fs::create_directories(path("/bin"));
  fs::copy_file(CALL_DAEMON_PROGRAM, path("/bin/call_daemon"));
}

DaemonTree::~DaemonTree() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

void DaemonTree::addPlugin(const std::string& name) const {
  const std::string contents = name + ".bundle/Contents";
  const std::string target = path("/usr/share/paddockd/bundles/") + contents;
  fs::create_directories(target);
  fs::copy_file(std::string(TEST_BUNDLES) + "/" + contents + "/" + name + ".so",
                target + "/" + name + ".so");
}

void DaemonTree::write(const std::string& below, std::string_view text) const {
  fs::create_directories(fs::path(path(below)).parent_path());
  std::ofstream(path(below), std::ios::binary) << text;
}

std::string DaemonTree::read(const std::string& below) const {
  std::ostringstream text;
  text << std::ifstream(path(below), std::ios::binary).rdbuf();
  return text.str();
}

bool DaemonTree::has(const std::string& below) const { return fs::exists(path(below)); }

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace paddock::testing
