#include "daemon/ldap_trial.h"

#include <ostream>
#include <stdexcept>
#include <string>

#include "base/printable.h"
#include "daemon/plugins/daemon_host.h"
#include "daemon/plugins/module_loader.h"

namespace paddock {
namespace {

constexpr const char* kPlugin = "paddock_directory";

Array serverPaths(const Configuration& configuration) {
  Array paths;
  const Array* servers = configuration.tree.array("ldap");
  if (servers == nullptr) return paths;
  for (const Value& server : *servers) {
    const std::string* name =
        server.dictionary() != nullptr ? server.dictionary()->string("name") : nullptr;
    if (name != nullptr) paths.emplace_back("/LDAP/" + *name);
  }
  return paths;
}

std::string textOf(const Dictionary& node, const char* key) {
  const std::string* text = node.string(key);
  return text != nullptr ? printable(*text) : std::string();
}

std::string describe(const Dictionary& node) {
  const std::string error = textOf(node, "error");
  const std::string basis = textOf(node, "basis");
  return textOf(node, "path") + ": " + textOf(node, "state") +
         (basis == "configured" ? " (as configured), " : ", ") +
         std::to_string(node.integer("milliseconds").value_or(0)) + " ms" +
         (error.empty() ? "" : ": " + error);
}

}  // namespace

bool tryLdapServers(const Configuration& configuration, const Paths& paths, std::ostream& stream) {
  Array servers = serverPaths(configuration);
  if (servers.empty()) return true;
  const std::size_t expected = servers.size();
  const DaemonHost host(paths.root(), configuration.tree);
  const LoadedPlugin plugin = loadPlugin(paths.bundles(), kPlugin);
  const Dictionary reply =
      plugin.handler->performOperation("listNodes", {{"paths", std::move(servers)}});
  const Array* nodes = reply.array("nodes");
  if (nodes == nullptr || nodes->size() != expected)
    throw std::runtime_error(std::string("plug-in ") + kPlugin + " does not tell of the servers");
  bool good = true;
  for (const Value& value : *nodes) {
    const Dictionary node = value.dictionary() != nullptr ? *value.dictionary() : Dictionary();
    good = good && !node.contains("error");
    stream << describe(node) << '\n';
  }
  stream.flush();
  return good;
}

}  // namespace paddock
