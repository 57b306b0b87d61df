#include "keelhouse/status_command.h"

#include <optional>
#include <string>
#include <vector>

#include "base/status.h"
#include "keelhouse/terminal_text.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kDirectoryPlugin = "paddock_directory";

struct Answer {
  bool good = false;
  std::string text;
};

struct Plugin {
  std::string name;
  std::size_t operations = 0;
  std::optional<Answer> state;  // absent when it tells none
};

bool holds(const Array& texts, std::string_view wanted) {
  for (const Value& text : texts) {
    if (text.string() != nullptr && *text.string() == wanted) return true;
  }
  return false;
}

Answer askState(const Session& session, const std::string& plugin) {
  try {
    const Dictionary reply = session.daemon.call(plugin, "getState", {});
    const std::string* state = reply.string("state");
    return {state != nullptr, state != nullptr ? *state : "no state in its reply"};
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
    return {false, failed.what()};
  }
}

Plugin describe(const Session& session, const Dictionary& entry) {
  Plugin plugin;
  if (const std::string* name = entry.string("name")) plugin.name = *name;
  if (const Array* operations = entry.array("operations")) {
    plugin.operations = operations->size();
    if (holds(*operations, "getState")) plugin.state = askState(session, plugin.name);
  }
  return plugin;
}

std::vector<Plugin> askPlugins(const Session& session) {
  std::vector<Plugin> plugins;
  const Dictionary reply = session.daemon.get("/v1/plugins");
  const Array* list = reply.array("plugins");
  if (list == nullptr) throw failure("the daemon's reply has no list of plug-ins");
  for (const Value& entry : *list) {
    if (entry.dictionary() != nullptr) plugins.push_back(describe(session, *entry.dictionary()));
  }
  return plugins;
}

std::string statusText(std::int64_t status) {
  return sharing_error_string(static_cast<Status>(status)) + " (status " + std::to_string(status) +
         ")";
}

Answer askLocalNode(const Session& session, const std::vector<Plugin>& plugins) {
  bool loaded = false;
  for (const Plugin& plugin : plugins) loaded = loaded || plugin.name == kDirectoryPlugin;
  if (!loaded) return {false, "not asked: the plug-in paddock_directory is not loaded"};
  try {
    const Dictionary reply =
        session.daemon.call(kDirectoryPlugin, "listRecords",
                            {{"node", "/Local"}, {"type", "dsRecTypeStandard:SharePoints"}});
    const auto status = reply.integer("status");
    if (status == 0) return {true, "reachable"};
    return {false, status ? statusText(*status) : "no status in its reply"};
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
    return {false, failed.what()};
  }
}

void printText(const Session& session, const Dictionary& health, const std::vector<Plugin>& plugins,
               const Answer& localNode) {
  const std::string* state = health.string("status");
  std::vector<std::vector<std::string>> rows;
  const std::string* version = health.string("version");
  rows.push_back({"daemon", (state != nullptr ? printable(*state) : "answers") +
                                (version != nullptr ? ", version " + printable(*version) : "") +
                                ", " + printable(session.daemon.socketPath())});
  for (const Plugin& plugin : plugins) {
    const std::string told = plugin.state ? ", state " + printable(plugin.state->text) : "";
    const char* noun = plugin.operations == 1 ? " operation" : " operations";
    rows.push_back(
        {"plug-in " + printable(plugin.name), std::to_string(plugin.operations) + noun + told});
  }
  rows.push_back({"node /Local", printable(localNode.text)});
  session.out << formatTable(rows);
}

Dictionary jsonOf(const Dictionary& health, const std::vector<Plugin>& plugins,
                  const Answer& localNode) {
  Array list;
  for (const Plugin& plugin : plugins) {
    Dictionary entry{{"name", plugin.name}, {"operations", plugin.operations}};
    if (plugin.state) entry.set(plugin.state->good ? "state" : "error", plugin.state->text);
    list.emplace_back(std::move(entry));
  }
  Dictionary node{{"node", "/Local"}, {"reachable", localNode.good}};
  if (!localNode.good) node.set("error", localNode.text);
  return {{"health", health}, {"plugins", std::move(list)}, {"nodes", Array{std::move(node)}}};
}

}  // namespace

ExitStatus showStatus(const Session& session) {
  const Dictionary health = session.daemon.get("/v1/health");
  const std::vector<Plugin> plugins = askPlugins(session);
  const Answer localNode = askLocalNode(session, plugins);
  if (session.json) {
    session.out << wire::writeJsonPretty(jsonOf(health, plugins, localNode)) << '\n';
  } else {
    printText(session, health, plugins, localNode);
  }
  bool good = localNode.good;
  for (const Plugin& plugin : plugins) good = good && (!plugin.state || plugin.state->good);
  return good ? ExitStatus::done : ExitStatus::failed;
}

}  // namespace paddock::keelhouse
