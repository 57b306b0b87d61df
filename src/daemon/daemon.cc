#include "daemon/daemon.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

#include "base/file_access.h"
#include "base/installed_root.h"
#include "base/program_start.h"
#include "base/system_call.h"
#include "base/text.h"
#include "base/trusted_path.h"
#include "configuration/configuration.h"
#include "daemon/daemon_options.h"
#include "daemon/http/http_server.h"
#include "daemon/http/listening_socket.h"
#include "daemon/http/watchdog.h"
#include "daemon/idle_clock.h"
#include "daemon/plugins/loaded_plugin.h"
#include "daemon/plugins/plugin_registry.h"
#include "daemon/service_manager.h"
#include "paddock/host.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"

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

namespace {

constexpr mode_t kUmask = 022;
constexpr mode_t kStateMode = 0700;
constexpr mode_t kLogMode = 0750;
constexpr rlim_t kDescriptors = 16384;
constexpr int kArenas = 2;
constexpr int kMapThreshold = 256 << 10;

// Memory of finished requests goes back to the system instead of staying with one of many heaps.
void settleAllocator() {
  ::mallopt(M_ARENA_MAX, kArenas);
  ::mallopt(M_MMAP_THRESHOLD, kMapThreshold);
}

// Whoever started the daemon may have closed these; the next files that are opened must not
// take their numbers.
void openStandardDescriptors() {
  for (int number = 0; number <= STDERR_FILENO; ++number) {
    if (::fcntl(number, F_GETFD) == -1) (void)::open("/dev/null", O_RDWR);  // NOLINT: inherited
  }
}

void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, kDescriptors));
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

// The signals that `waitForEnd` waits for, blocked in every thread.
sigset_t blockSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&signals, number);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
  // Sent to the holder of a lease when the file is opened; the default action terminates the
  // process.
  ::signal(SIGIO, SIG_IGN);
  return signals;
}

void waitForEnd(const sigset_t& signals, const std::function<void()>& hangUp) {
  for (;;) {
    int number = 0;
    if (::sigwait(&signals, &number) != 0) continue;
    if (number != SIGHUP) return;
    hangUp();
  }
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

void logReload(const ConfigurationState& state) {
  for (const std::string& problem : state.problems)
    logMessage(3, "configuration not read again, the one in force stays: " + problem);
  if (!state.problems.empty()) return;
  logMessage(6, "configuration read again; " + (state.applied.empty()
                                                    ? "no key has changed that can change now"
                                                    : "changed: " + joined(state.applied)));
  if (state.awaitingRestart.empty()) return;
  logMessage(4, "configuration: a restart (systemctl restart paddockd) is needed for " +
                    joined(state.awaitingRestart));
}

// As the service manager shows it.
std::string describeState(const ConfigurationState& state) {
  if (!state.problems.empty())
    return "serving; configuration not read again, the one in force stays: " + state.problems[0];
  if (state.awaitingRestart.empty()) return "serving";
  return "serving; a restart is needed for " + joined(state.awaitingRestart);
}

// A tree of its own leaves the system's log alone.
void openLog(bool ownTree, bool debug) {
  setDebugLogging(debug);
  if (ownTree) {
    installLogSink(standardErrorSink());
    return;
  }
  ::openlog("paddockd", LOG_PID, LOG_DAEMON);
  if (::isatty(STDERR_FILENO) == 0) return;
  installLogSink([terminal = standardErrorSink()](int priority, const std::string& line) {
    ::syslog(LOG_DAEMON | priority, "%s", line.c_str());
    terminal(priority, line);
  });
}

// What is wrong with the configuration, a line each. True when nothing is.
bool report(std::ostream& stream, const std::string& path,
            const std::vector<ConfigurationProblem>& problems) {
  for (const auto& problem : problems) stream << describeProblem(path, problem) << '\n';
  stream.flush();
  return problems.empty();
}

// The file of the host library, which the dynamic linker has chosen; empty when it is not known.
std::string hostLibrary() {
  Dl_info info{};
  auto* const inLibrary = &installHost;
  void* address = nullptr;
  static_assert(sizeof address == sizeof inLibrary);
  std::memcpy(&address, &inLibrary, sizeof address);
  return ::dladdr(address, &info) != 0 && info.dli_fname != nullptr ? info.dli_fname : "";
}

// The daemon's code that others could have changed, a line each: the folder of plug-ins, and the
// host library.
std::vector<std::string> untrustedCode(const Paths& paths) {
  std::vector<std::string> lines;
  const auto add = [&lines](const std::string& path) {
    const std::string why = whyUntrusted(path);
    if (!why.empty()) lines.push_back(path + ": not used, because " + why);
  };
  add(paths.bundles());
  add(hostLibrary());
  return lines;
}

// True when there are no lines.
bool reportCode(std::ostream& stream, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) stream << line << '\n';
  stream.flush();
  return lines.empty();
}

bool check(const Options& options, const Paths& paths, const std::string& file,
           const Configuration& configuration, const std::vector<ConfigurationProblem>& problems) {
  const bool isGood = report(std::cout, file, problems);
  std::vector<std::string> code = untrustedCode(paths);
  // The folder's line is about every plug-in in it.
  if (code.empty()) code = untrustedPlugins(paths.bundles());
  if (!reportCode(std::cout, code) || !isGood) return false;
  if (!options.tryLdap) return true;
  try {
    return tryLdapServers(configuration, paths, std::cout);
  } catch (const std::exception& error) {
    std::cerr << "paddockd: " << error.what() << '\n';
    return false;
  }
}

// Takes over from the configuration that was read again what plug-ins and programs see of it.
void applyReload(RunningConfiguration& configuration, DaemonHost& host, HttpServer& server) {
  const ConfigurationState state = configuration.reload();
  logReload(state);
  if (state.applied.empty()) return;
  const auto current = configuration.current();
  host.setConfiguration(current->tree);
  setProgramTimeLimit(std::chrono::seconds(current->programSeconds));
  server.changeLimits();
}

void serve(const Paths& paths, RunningConfiguration& configuration, const sigset_t& signals) {
  const ListeningSocket socket(paths, passedSocket(paths.socket()));
  const auto limit = watchdogLimit();
  (void)openOwnFolder(paths.stateFolder(), kStateMode);
  (void)openOwnFolder(paths.logFolder(), kLogMode);
  AuditLog audit(paths.auditLog(), paths.begunChanges());
  const auto requestLog = std::make_shared<RequestLog>();
  // A program that a request started may end after the daemon has begun to.
  installRequestLineSink(
      [requestLog](const std::string& id, int priority, const std::string& text) {
        requestLog->add(id, priority, text);
      });
  ContextStore contexts(paths.contextFolder());
  DaemonHost host(paths.root(), configuration.current()->tree);
  setProgramTimeLimit(std::chrono::seconds(configuration.current()->programSeconds));
  PluginRegistry plugins(loadPlugins(paths.bundles()), contexts);
  host.setPlugins(&plugins);
  {
    Service service{configuration, plugins, audit, *requestLog, {}};
    HttpServer server(service, socket.get());
    std::optional<Watchdog> watchdog;
    if (limit) watchdog.emplace(paths.socket(), *limit, notifyAlive);
    const IdleClock clock([&plugins, &audit](std::uint64_t count) {
      audit.tick();
      plugins.tick(count);
    });
    logMessage(6, "listening on " + paths.socket());
    notifyReady(describeState(configuration.state()));
    waitForEnd(signals, [&] {
      notifyReloading();
      audit.reopen();
      logMessage(6, "audit log opened again");
      applyReload(configuration, host, server);
      notifyReady(describeState(configuration.state()));
    });
    logMessage(6, "stopping");
    notifyStopping("waiting for the requests that are running");
    server.close();
  }
  host.setPlugins(nullptr);
}

}  // namespace

int runDaemon(const Options& options) {
  ignoreLdapFiles();
  settleAllocator();
  openStandardDescriptors();
  const std::string root = options.root
                               ? rootFromArgument(*options.root)
                               : rootOfInstalled(runningExecutable(), "/usr/sbin/paddockd");
  const Paths paths(root);
  const std::string open = acceptOpenProgram(runningExecutable());
  const std::string file = options.configuration.value_or(paths.configuration());
  std::vector<ConfigurationProblem> problems;
  const bool required = options.configuration.has_value();
  const Configuration configuration = readConfigurationFile(file, required, problems);
  if (options.checkConfiguration)
    return check(options, paths, file, configuration, problems) ? 0 : 1;
  const bool isGood = report(std::cerr, file, problems);
  if (!reportCode(std::cerr, untrustedCode(paths)) || !isGood) return 1;
  const sigset_t signals = blockSignals();
  ::umask(kUmask);
  raiseDescriptorLimit();
  openLog(!root.empty(), options.debug);
  if (!open.empty())
    logMessage(4, "others can change what runs here, which is not judged therefore: " + open);
  try {
    RunningConfiguration running(std::filesystem::absolute(file), required, configuration);
    // Programs that run for the daemon must not search the folder that it was started from.
    if (::chdir("/") != 0) throw std::runtime_error("the folder / cannot be entered");
    serve(paths, running, signals);
  } catch (const std::exception& error) {
    std::cerr << "paddockd: " << error.what() << '\n';
    if (root.empty()) ::syslog(LOG_DAEMON | LOG_ERR, "%s", error.what());
    return 1;
  }
  logMessage(6, "stopped");
  return 0;
}

}  // namespace paddock
