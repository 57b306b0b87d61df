#include "keelhouse/keelhouse_command_line.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <string_view>

#include "base/installed_root.h"
#include "base/text.h"
#include "keelhouse/core/command_options.h"
#include "keelhouse/core/keelhouse_request_log.h"
#include "keelhouse/core/socket_path.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/status_command.h"
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

// What keelhouse did not say itself: no line feed of it begins a line of an error.
ForeignLineBreaks lineBreaksOf(const std::vector<std::string>& words) {
  ForeignLineBreaks breaks;
  for (const std::string& word : words) breaks.add(std::string_view(word));
  return breaks;
}

// The words of the command that was parsed: "share add".
std::string commandOf(const CLI::App& program) {
  std::string words;
  const CLI::App* command = &program;
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    words += (words.empty() ? "" : " ") + command->get_name();
  }
  return words;
}

// A change begins with a read, for which the daemon names the group that may only read. A user
// about to make a change needs the other one.
Failure adviseOnGroup(const Failure& failed, const std::string& command) {
  static const std::set<std::string> kChanges{
      "share add",  "share set", "share remove", "share move",   "share rename",
      "privs set",  "acl set",   "acl add",      "acl remove",   "acl clear",
      "acl strict", "index on",  "index off",    "propagate",    "quota on",
      "quota off",  "quota set", "record put",   "record delete"};
  constexpr std::string_view kGroup = " in the group ";
  constexpr std::string_view kChanging = " (changes) or ";
  constexpr std::string_view kCommand = ": usermod -aG ";
  const std::string text = failed.what();
  const std::size_t group = text.find(kGroup);
  const std::size_t changing = text.find(kChanging);
  const std::size_t advice = text.find(kCommand);
  const bool isRefused = dynamic_cast<const Refusal*>(&failed) != nullptr &&
                         changing != std::string::npos && group < changing && changing < advice &&
                         advice != std::string::npos;
  if (!isRefused || !kChanges.contains(command)) return failed;
  const std::size_t name = group + kGroup.size();
  const std::size_t user = text.find(' ', advice + kCommand.size());
  if (user == std::string::npos) return failed;
  return failed.withText(text.substr(0, advice) + std::string(kCommand) +
                         text.substr(name, changing - name) + text.substr(user));
}

// --help and --version are exceptions of the parser too.
int endParsing(const CLI::App& program, const CLI::ParseError& reason,
               const std::vector<std::string>& words, std::ostream& out, std::ostream& error) {
  if (reason.get_exit_code() == numberOf(ExitStatus::done)) return program.exit(reason, out, error);
  return fail(error, ExitStatus::usage,
              lineBreaksOf(words).escape(unknownWord(program, words).value_or(reason.what())) +
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

struct ParsedCommand {
  std::string name;                // "share add"
  std::vector<std::string> words;  // as they were typed, all
};

// With JSON the output is deferred until additions to the document are known.
int perform(const Action& action, const DaemonClient& daemon, bool json,
            const ParsedCommand& command, std::ostream& out, std::ostream& error) {
  const auto escape = [&](const std::string& text) {
    return daemon.lineBreaks().escape(lineBreaksOf(command.words).escape(text));
  };
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
  } catch (const Failure& failure) {
    const Failure failed = adviseOnGroup(failure, command.name);
    printFailure(session, error, failed.withText(escape(failed.what())), noted.text());
    if (json) out << document.str();
    return numberOf(failed.status());
  } catch (const std::exception& exception) {
    if (json) out << document.str();
    return fail(error, ExitStatus::failed, escape(exception.what()));
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
  return perform(action, daemon, options.json, {commandOf(program), words}, out, error);
}

}  // namespace paddock::keelhouse
