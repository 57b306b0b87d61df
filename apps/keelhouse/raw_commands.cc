#include "keelhouse/raw_commands.h"

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <memory>

#include "keelhouse/command_words.h"
#include "keelhouse/core/command_options.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/terminal_text.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::string_view kStatus = "status";

bool isLeaf(const Value& value) {
  return value.array() == nullptr && value.dictionary() == nullptr;
}

class LeafWriter {
 public:
  LeafWriter(std::string& out, std::string_view shortName) : out_(out), path_(shortName) {}

  void writeReply(const Dictionary& reply) {
    const Value* status = reply.find(kStatus);
    const bool first = status != nullptr && isLeaf(*status);
    if (first) below(kStatus, *status);
    for (const auto& entry : reply) {
      if (!first || entry.key != kStatus) below(printable(entry.key), entry.value);
    }
  }

 private:
  void below(std::string_view part, const Value& value) {
    const std::size_t length = path_.size();
    path_ += ':';
    path_ += part;
    write(value);
    path_.resize(length);
  }

  void write(const Value& value) {
    if (const Dictionary* dictionary = value.dictionary()) {
      for (const auto& entry : *dictionary) below(printable(entry.key), entry.value);
    } else if (const Array* array = value.array()) {
      for (std::size_t at = 0; at < array->size(); ++at) below(std::to_string(at), (*array)[at]);
    } else {
      out_ += path_ + " = " + wire::writeJson(value) + "\n";
    }
  }

  std::string& out_;
  std::string path_;
};

}  // namespace

std::string formatLeaves(std::string_view shortName, const Dictionary& reply) {
  std::string lines;
  LeafWriter(lines, shortName).writeReply(reply);
  return lines;
}

namespace {

constexpr std::size_t kMaximumRequest = std::size_t{1} << 30U;

ExitStatus exitStatusOf(const Dictionary& reply) {
  return reportsFailure(reply) ? ExitStatus::failed : ExitStatus::done;
}

// The daemon checks again; here a usage error is distinguished from a refusal.
void checkRequest(const std::string& text) {
  std::string error;
  const auto request = wire::parseJson(text, error);
  if (!request) throw usageFailure("the request is not JSON: " + error);
  if (request->dictionary() == nullptr) throw usageFailure("the request is no JSON dictionary");
}

}  // namespace

ExitStatus runRequest(const Session& session, const std::string& plugin,
                      const std::string& operation, const std::string& json) {
  const std::string text = json == "-" ? readAll(STDIN_FILENO, kMaximumRequest) : json;
  checkRequest(text);
  const Dictionary reply = session.daemon.post(plugin, operation, text);
  session.out << (session.json ? wire::writeJson(reply) : wire::writeJsonPretty(reply)) << '\n';
  return exitStatusOf(reply);
}

ExitStatus runCommand(const Session& session, const std::vector<std::string>& words) {
  const PluginCommand command = parseCommandWords(words);
  // Not `call`: for these only the reply is reported, whatever the log contains.
  const Dictionary reply = session.daemon.post("paddock_" + command.shortName, command.operation,
                                               wire::writeJson(command.arguments));
  if (session.json) {
    session.out << wire::writeJson(reply) << '\n';
  } else {
    session.out << formatLeaves(command.shortName, reply);
  }
  return exitStatusOf(reply);
}

namespace {

struct RequestOptions {
  std::string plugin;
  std::string operation;
  std::string json = "{}";
};

void addRequest(CLI::App& program, Action& action) {
  auto* command = program.add_subcommand("request", "Send a request, print the reply as JSON");
  const auto options = std::make_shared<RequestOptions>();
  command->add_option("PLUGIN", options->plugin, "Such as paddock_sharing")->required();
  command->add_option("OPERATION", options->operation, "Such as readSettings")->required();
  command->add_option("JSON", options->json, "The request; \"-\" reads standard input")
      ->capture_default_str();
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return runRequest(session, options->plugin, options->operation, options->json);
    };
  });
}

}  // namespace

void addRawCommands(CLI::App& program, Action& action) {
  addRequest(program, action);
  auto* command = program.add_subcommand(
      "command", "Send KEY = VALUE [KEY = VALUE ...], print the reply one line per leaf");
  // The words are not for the option parser: a value can begin with a dash.
  command->prefix_command();
  command->fallthrough(false);
  command->footer(
      "KEY is SHORTNAME:NAME, NAME:NAME... inside dictionaries; SHORTNAME:command names the\n"
      "operation of the plug-in paddock_SHORTNAME. For example:\n"
      "  keelhouse command vsp:command = syncSharePoints");
  command->callback([command, &action] {
    action = [words = command->remaining()](const Session& session) {
      return runCommand(session, words);
    };
  });
}

}  // namespace paddock::keelhouse
