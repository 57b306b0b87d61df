#include "daemon/daemon.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <optional>

#include "base/file_access.h"
#include "base/installed_root.h"
#include "base/system_call.h"
#include "configuration/configuration.h"
#include "daemon/daemon_host.h"
#include "daemon/http_server.h"
#include "daemon/idle_clock.h"
#include "daemon/ldap_trial.h"
#include "daemon/listening_socket.h"
#include "daemon/module_loader.h"
#include "daemon/paths.h"
#include "paddock/run_program.h"
#include "paddock/sys_logger.h"

namespace paddock {
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
  return signals;
}

void waitForEnd(const sigset_t& signals, AuditLog& audit) {
  for (;;) {
    int number = 0;
    if (::sigwait(&signals, &number) != 0) continue;
    if (number != SIGHUP) return;
    audit.reopen();
    logMessage(6, "audit log opened again");
  }
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

bool check(const Options& options, const Paths& paths, const std::string& file,
           const Configuration& configuration, const std::vector<ConfigurationProblem>& problems) {
  if (!report(std::cout, file, problems)) return false;
  if (!options.tryLdap) return true;
  try {
    return tryLdapServers(configuration, paths, std::cout);
  } catch (const std::exception& error) {
    std::cerr << "paddockd: " << error.what() << '\n';
    return false;
  }
}

void serve(const Paths& paths, const Configuration& configuration, const sigset_t& signals) {
  const ListeningSocket socket(paths);
  (void)openOwnFolder(paths.stateFolder(), kStateMode);
  (void)openOwnFolder(paths.logFolder(), kLogMode);
  AuditLog audit(paths.auditLog());
  ContextStore contexts(paths.contextFolder());
  DaemonHost host(paths.root(), configuration.tree);
  setProgramTimeLimit(std::chrono::seconds(configuration.programSeconds));
  PluginRegistry plugins(loadPlugins(paths.bundles()), contexts);
  host.setPlugins(&plugins);
  {
    Service service{configuration,
                    plugins,
                    audit,
                    AccessPolicy(configuration.adminGroup, configuration.viewGroup),
                    {}};
    HttpServer server(service, socket.get());
    const IdleClock clock([&plugins](std::uint64_t count) { plugins.tick(count); });
    logMessage(6, "listening on " + paths.socket());
    waitForEnd(signals, audit);
    logMessage(6, "stopping");
    server.close();
  }
  host.setPlugins(nullptr);
}

}  // namespace

int runDaemon(const Options& options) {
  settleAllocator();
  openStandardDescriptors();
  const std::string root = options.root
                               ? rootFromArgument(*options.root)
                               : rootOfInstalled(runningExecutable(), "/usr/sbin/paddockd");
  const Paths paths(root);
  const std::string file = options.configuration.value_or(paths.configuration());
  std::vector<ConfigurationProblem> problems;
  const Configuration configuration = readConfiguration(file, problems);
  if (options.configuration && ::access(file.c_str(), F_OK) != 0) {
    problems.push_back({0, "there is no such file"});
  }
  if (options.checkConfiguration)
    return check(options, paths, file, configuration, problems) ? 0 : 1;
  if (!report(std::cerr, file, problems)) return 1;
  const sigset_t signals = blockSignals();
  ::umask(kUmask);
  raiseDescriptorLimit();
  openLog(!root.empty(), options.debug);
  try {
    serve(paths, configuration, signals);
  } catch (const std::exception& error) {
    std::cerr << "paddockd: " << error.what() << '\n';
    if (root.empty()) ::syslog(LOG_DAEMON | LOG_ERR, "%s", error.what());
    return 1;
  }
  logMessage(6, "stopped");
  return 0;
}

}  // namespace paddock
