#include "keelhouse/command_line.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <sstream>

#include "base/installed_root.h"
#include "base/printable.h"
#include "keelhouse/options.h"
#include "keelhouse/request_log.h"
#include "keelhouse/socket_path.h"
#include "keelhouse/status_command.h"
#include "keelhouse/terminal_text.h"
#include "keelhouse/unknown_words.h"

namespace paddock::keelhouse {

namespace {

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

// With JSON the document waits for what is to be added to it.
int perform(const Action& action, const DaemonClient& daemon, bool json, std::ostream& out,
            std::ostream& error) {
  NotesBuffer noted(error);
  std::ostream notes(&noted);
  std::ostringstream document;
  const std::string root = rootOfSocket(daemon.socketPath()).value_or(ownRoot());
  const Session session{daemon, json ? document : out, notes, json, root, isTerminal(out)};
  try {
    const ExitStatus status = action(session);
    Array log = warnOfErrors(session, noted.text());
    if (json) out << withLog(document.str(), std::move(log));
    out.flush();
    if (!out) return fail(error, ExitStatus::failed, "standard output cannot be written");
    return numberOf(status);
  } catch (const Failure& failed) {
    printFailure(session, error, failed, noted.text());
    if (json) out << document.str();
    return numberOf(failed.status());
  } catch (const std::exception& exception) {
    if (json) out << document.str();
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
  return perform(action, daemon, options.json, out, error);
}

}  // namespace paddock::keelhouse
