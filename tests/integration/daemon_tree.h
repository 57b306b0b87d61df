// A tree below which a daemon runs: a folder of its own with a short path, removed at the end.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace paddock::testing {

class DaemonTree {
 public:
  // With the plug-ins "test_good" and "test_sibling" and the program "/bin/call_daemon".
  DaemonTree();
  DaemonTree(const DaemonTree&) = delete;
  DaemonTree& operator=(const DaemonTree&) = delete;
  ~DaemonTree();

  const std::string& root() const { return root_; }
  std::string path(std::string_view below) const { return root_ + std::string(below); }
  std::string socket() const { return path("/run/paddock/paddockd.sock"); }
  std::string auditLog() const { return path("/var/log/paddock/audit.jsonl"); }

  void addPlugin(const std::string& name) const;
  void configure(const std::string& text) const { write("/etc/paddock/paddockd.toml", text); }
  // Makes the folders above, too.
  void write(const std::string& below, std::string_view text) const;
  // Empty when there is no such file.
  std::string read(const std::string& below) const;
  bool has(const std::string& below) const;

 private:
  std::string root_;
};

// The lines of a text, without their ends.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace paddock::testing
