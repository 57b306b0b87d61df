#include "keelhouse/command_line.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>

#include "base/installed_root.h"
#include "base/printable.h"
#include "keelhouse/options.h"
#include "keelhouse/socket_path.h"
#include "keelhouse/status_command.h"
#include "keelhouse/terminal_text.h"
#include "keelhouse/unknown_words.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::size_t kLogLines = 20;

struct GlobalOptions {
  std::string root;
  std::string socket;
  bool json = false;
};

void addGlobalOptions(CLI::App& program, GlobalOptions& options) {
  program.fallthrough();
  program.require_subcommand(1);
  program.set_version_flag("--version", "keelhouse " PADDOCK_VERSION);
  auto* root = program.add_option("--root", options.root, "Ask the daemon of the tree below DIR");
  root->type_name("DIR");
  program.add_option("--socket", options.socket, "Ask the daemon that listens on PATH")
      ->type_name("PATH")
      ->excludes(root);
  program.add_flag("--json", options.json, "Print raw values as JSON");
}

std::string ownRoot() { return rootOfInstalled(runningExecutable(), "/usr/sbin/keelhouse"); }

std::string socketOf(const CLI::App& program, const GlobalOptions& options) {
  if (program.count("--socket") > 0) return options.socket;
  return socketBelow(program.count("--root") > 0 ? options.root : ownRoot());
}

// Only a stream of the program itself can be a terminal.
bool isTerminal(const std::ostream& out) {
  return out.rdbuf() == std::cout.rdbuf() && ::isatty(STDOUT_FILENO) == 1;
}

int numberOf(ExitStatus status) { return static_cast<int>(status); }

int fail(std::ostream& error, ExitStatus status, const std::string& text) {
  error << "keelhouse: " << printableLines(text) << '\n';
  return numberOf(status);
}

// What the daemon logged for the request. What cannot be found out is left out: the failure itself
// is told anyhow.
std::vector<LogLine> logOf(const Session& session, const Failure& failed) {
  const std::string& request = session.daemon.lastRequestId();
  if (failed.origin() != ReportedBy::daemon || request.empty()) return {};
  try {
    return session.daemon.requestLog(request);
  } catch (const Failure&) {
    return {};
  }
}

// The errors and warnings among them, a line each.
std::string troublesIn(const std::vector<LogLine>& log, const std::string& request) {
  std::string text;
  std::size_t shown = 0;
  for (const LogLine& line : log) {
    if (line.level != "error" && line.level != "warning") continue;
    if (shown++ == kLogLines) {
      return text + "  more: journalctl -u paddockd --grep " + printable(request) + "\n";
    }
    text.append("  ").append(line.level).append(": ").append(printable(line.text)).append("\n");
  }
  return text;
}

// For programs, what standard error has for people; `log` has lines of every level.
void printFailure(const Session& session, const Failure& failed, const std::vector<LogLine>& log) {
  Array lines;
  for (const LogLine& line : log) {
    lines.emplace_back(Dictionary{{"time", line.time}, {"level", line.level}, {"text", line.text}});
  }
  session.out << wire::writeJsonPretty(Dictionary{{"error", failed.what()},
                                                  {"exitStatus", numberOf(failed.status())},
                                                  {"log", std::move(lines)}})
              << '\n';
}

int fail(const Session& session, std::ostream& error, const Failure& failed) {
  const std::string text = failed.what();
  const std::size_t end = text.find('\n');
  const std::vector<LogLine> log = logOf(session, failed);
  error << "keelhouse: " << printableLines(text.substr(0, end)) << '\n'
        << troublesIn(log, session.daemon.lastRequestId());
  if (end != std::string::npos) error << printableLines(text.substr(end + 1)) << '\n';
  if (session.json) printFailure(session, failed, log);
  return numberOf(failed.status());
}

// --help and --version are exceptions of the parser too.
int endParsing(const CLI::App& program, const CLI::ParseError& reason,
               const std::vector<std::string>& words, std::ostream& out, std::ostream& error) {
  if (reason.get_exit_code() == numberOf(ExitStatus::done)) return program.exit(reason, out, error);
  return fail(error, ExitStatus::usage,
              unknownWord(program, words).value_or(reason.what()) +
                  "\nSee keelhouse help, and keelhouse(8).");
}

// Prints the help by itself: it needs no daemon.
void addHelp(CLI::App& program, Action& action) {
  auto* help = program.add_subcommand("help", "Help on a command, such as: help share add");
  const auto words = std::make_shared<std::vector<std::string>>();
  help->add_option("COMMAND", *words, "The words of the command");
  help->callback([words, &program, &action] {
    action = [words, &program](const Session& session) {
      session.out << helpOn(program, *words);
      return ExitStatus::done;
    };
  });
}

int perform(const Action& action, const Session& session, std::ostream& error) {
  try {
    const ExitStatus status = action(session);
    session.out.flush();
    if (!session.out) return fail(error, ExitStatus::failed, "standard output cannot be written");
    return numberOf(status);
  } catch (const Failure& failed) {
    return fail(session, error, failed);
  } catch (const std::exception& exception) {
    return fail(error, ExitStatus::failed, exception.what());
  }
}

}  // namespace

int runKeelhouse(const std::vector<std::string>& words, std::ostream& out, std::ostream& error) {
  CLI::App program("Administers shared folders through paddockd.", "keelhouse");
  GlobalOptions options;
  Action action;
  addGlobalOptions(program, options);
  addShareCommands(program, action);
  addPrivilegeCommands(program, action);
  addAclCommands(program, action);
  addPropagateCommand(program, action);
  addEffectiveCommands(program, action);
  addVolumeCommands(program, action);
  addRecordCommands(program, action);
  addNodeCommands(program, action);
  addAuditCommand(program, action);
  addRawCommands(program, action);
  bool checkServed = false;
  auto* status = program.add_subcommand("status", "What the daemon says of itself");
  status->add_flag("--check", checkServed, "And whether the shared folders are served");
  status->callback([&action, &checkServed] {
    action = [&checkServed](const Session& session) { return showStatus(session, checkServed); };
  });
  addHelp(program, action);
  try {
    // The parser takes its words from the back.
    program.parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::ParseError& reason) {
    return endParsing(program, reason, words, out, error);
  }
  const DaemonClient daemon(socketOf(program, options));
  const std::string root = rootOfSocket(daemon.socketPath()).value_or(ownRoot());
  return perform(action, {daemon, out, error, options.json, root, isTerminal(out)}, error);
}

}  // namespace paddock::keelhouse
