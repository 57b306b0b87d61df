// Directory nodes that did not answer when they were asked last, as plug-ins met them; the daemon
// names them in its health. Any thread may call.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace paddock {

struct UnansweredNode {
  std::string path;   // "/LDAP/site"
  std::string error;  // what kept it from answering last
  std::chrono::system_clock::time_point since;
};

// The node was left out of what it was asked for. Logs that, once for each request; outside of a
// request once until it has answered again.
void noteUnanswered(const std::string& path, const std::string& error);
// The node answered. Logs that when it had not before.
void noteAnswered(const std::string& path);

// In the order of their paths.
std::vector<UnansweredNode> unansweredNodes();

}  // namespace paddock
