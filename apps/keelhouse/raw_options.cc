#include <CLI/CLI.hpp>
#include <memory>

#include "keelhouse/core/options.h"
#include "keelhouse/raw_commands.h"

namespace paddock::keelhouse {

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
