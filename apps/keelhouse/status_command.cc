#include "keelhouse/status_command.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "keelhouse/core/terminal_text.h"
#include "keelhouse/directory/node_list.h"
#include "keelhouse/propagate/run_status.h"
#include "keelhouse/propagate/run_text.h"
#include "keelhouse/propagate/running_runs.h"
#include "keelhouse/share/served_states.h"
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
  std::optional<Answer> state;  // absent when it reports none
};

struct RunInSight {
  RunningRun run;
  std::optional<Dictionary> status;
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

// The directory nodes, or why they cannot be determined.
struct Directory {
  std::vector<Node> nodes;
  std::string error;

  bool isGood() const {
    return error.empty() && std::all_of(nodes.begin(), nodes.end(),
                                        [](const Node& node) { return node.isUsable(); });
  }
};

Directory askDirectory(const Session& session, const std::vector<Plugin>& plugins) {
  const bool loaded = std::any_of(plugins.begin(), plugins.end(), [](const Plugin& plugin) {
    return plugin.name == kDirectoryPlugin;
  });
  if (!loaded) return {{}, "not asked: the plug-in paddock_directory is not loaded"};
  try {
    return {askNodes(session), {}};
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
    return {{}, failed.what()};
  }
}

// Their progress is available to root only.
std::vector<RunInSight> askRuns(const Session& session) {
  std::vector<RunInSight> runs;
  for (RunningRun& run : runningRuns(session.root)) {
    auto status = readStatusFile(run.statusFile);
    runs.push_back({std::move(run), std::move(status)});
  }
  return runs;
}

std::string joined(const Array* texts) {
  std::string line;
  if (texts == nullptr) return line;
  for (const Value& text : *texts) {
    if (text.string() == nullptr) continue;
    line += (line.empty() ? "" : ", ") + printable(*text.string());
  }
  return line;
}

// What the searches make of a node that cannot be used.
std::string leftOut(const Dictionary& health, const Node& node) {
  if (node.isUsable()) return {};
  for (const UnansweredNode& one : unansweredNodes(health)) {
    if (one.path == node.path) return "; left out of searches since " + one.since;
  }
  return "; left out of searches";
}

bool configurationIsBroken(const Dictionary& health) {
  const Dictionary* configuration = health.dictionary("configuration");
  return configuration != nullptr && !joined(configuration->array("problems")).empty();
}

// How the file differs from the configuration in effect, as far as the daemon has read it.
std::string describeConfiguration(const Dictionary& configuration) {
  const std::string problems = joined(configuration.array("problems"));
  if (!problems.empty()) return "not read again, the one before stays: " + problems;
  const std::string waiting = joined(configuration.array("awaitingRestart"));
  const std::string* read = configuration.string("read");
  return "read " + (read != nullptr ? printable(*read) : std::string()) +
         (waiting.empty() ? ""
                          : "; a restart (systemctl restart paddockd) is needed for " + waiting);
}

std::string describeRun(const RunInSight& run) {
  const std::string parts = pushedWords(run.run.mask);
  return parts + (run.status ? ", " + progressText(readRunStatus(*run.status), {}) : "") +
         ", process " + std::to_string(run.run.process);
}

// `served` is absent when it was not asked for.
void printText(const Session& session, const Dictionary& health, const std::vector<Plugin>& plugins,
               const Directory& directory, const std::vector<RunInSight>& runs,
               const std::optional<ServedStates>& served) {
  const std::string* state = health.string("status");
  std::vector<std::vector<std::string>> rows;
  const std::string* version = health.string("version");
  rows.push_back({"daemon", (state != nullptr ? printable(*state) : "answers") +
                                (version != nullptr ? ", version " + printable(*version) : "") +
                                ", " + printable(session.daemon.socketPath())});
  if (const Dictionary* configuration = health.dictionary("configuration"))
    rows.push_back({"configuration", describeConfiguration(*configuration)});
  for (const Plugin& plugin : plugins) {
    const std::string told = plugin.state ? ", state " + printable(plugin.state->text) : "";
    const char* noun = plugin.operations == 1 ? " operation" : " operations";
    rows.push_back(
        {"plug-in " + printable(plugin.name), std::to_string(plugin.operations) + noun + told});
  }
  for (const Node& node : directory.nodes) {
    rows.push_back(
        {"node " + printable(node.path), printable(describeNode(node) + leftOut(health, node))});
  }
  if (!directory.error.empty()) rows.push_back({"directory nodes", printable(directory.error)});
  for (const RunInSight& run : runs) {
    rows.push_back({"propagation " + printable(run.run.path), describeRun(run)});
  }
  if (served) {
    for (auto& row : servedRows(*served)) rows.push_back(std::move(row));
  }
  session.out << formatTable(rows);
}

Array jsonOf(const Directory& directory) {
  Array nodes;
  for (const Node& node : directory.nodes) {
    Dictionary entry{{"node", node.path},
                     {"reachable", node.isReachable()},
                     {"state", node.state},
                     {"milliseconds", node.milliseconds}};
    if (!node.error.empty()) entry.set("error", node.error);
    nodes.emplace_back(std::move(entry));
  }
  return nodes;
}

Array jsonOf(const std::vector<RunInSight>& runs) {
  Array list;
  for (const RunInSight& run : runs) {
    Dictionary entry{{"path", run.run.path},
                     {"pid", run.run.process},
                     {"mask", run.run.mask},
                     {"statusFile", run.run.statusFile}};
    if (run.status) entry.set("status", *run.status);
    list.emplace_back(std::move(entry));
  }
  return list;
}

Dictionary jsonOf(const Dictionary& health, const std::vector<Plugin>& plugins,
                  const Directory& directory, const std::vector<RunInSight>& runs,
                  const std::optional<ServedStates>& served) {
  Array list;
  for (const Plugin& plugin : plugins) {
    Dictionary entry{{"name", plugin.name}, {"operations", plugin.operations}};
    if (plugin.state) entry.set(plugin.state->good ? "state" : "error", plugin.state->text);
    list.emplace_back(std::move(entry));
  }
  Dictionary all{{"health", health},
                 {"plugins", std::move(list)},
                 {"nodes", jsonOf(directory)},
                 {"propagations", jsonOf(runs)}};
  if (!directory.error.empty()) all.set("nodesError", directory.error);
  if (served) all.set("sharePoints", served->sharePoints);
  if (served && !served->error.empty()) all.set("sharePointsError", served->error);
  return all;
}

}  // namespace

ExitStatus showStatus(const Session& session, bool check) {
  const Dictionary health = session.daemon.get("/v1/health");
  const std::vector<Plugin> plugins = askPlugins(session);
  const Directory directory = askDirectory(session, plugins);
  const std::vector<RunInSight> runs = askRuns(session);
  std::optional<ServedStates> served;
  if (check) served = askAllServed(session);
  if (session.json) {
    session.out << wire::writeJsonPretty(jsonOf(health, plugins, directory, runs, served)) << '\n';
  } else {
    printText(session, health, plugins, directory, runs, served);
  }
  bool good =
      directory.isGood() && !configurationIsBroken(health) && (!served || served->areGood());
  for (const Plugin& plugin : plugins) good = good && (!plugin.state || plugin.state->good);
  return good ? ExitStatus::done : ExitStatus::failed;
}

}  // namespace paddock::keelhouse
