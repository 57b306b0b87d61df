#include <CLI/CLI.hpp>

#include <memory>

#include "keelhouse/core/command_options.h"
#include "keelhouse/directory/node_commands.h"
#include "keelhouse/directory/record_commands.h"

namespace paddock::keelhouse {

namespace {

struct AuthOptions {
  std::string node;
  std::string user;
  int passwordDescriptor = -1;
};

void addAuth(CLI::App& program, Action& action) {
  const auto options = std::make_shared<AuthOptions>();
  auto* command =
      program.add_subcommand("auth", "Try whether a user may change records on a directory node");
  command->add_option("NODE", options->node, "Directory node, \"/Local\" for one")->required();
  command->add_option("USER", options->user, "The user's name there")->required();
  command
      ->add_option("--password-fd", options->passwordDescriptor,
                   "Descriptor to read the password from")
      ->check(CLI::NonNegativeNumber);
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return tryAuthentication(session, options->node, options->user, options->passwordDescriptor);
    };
  });
}

}  // namespace

void addNodeCommands(CLI::App& program, Action& action) {
  program.add_subcommand("nodes", "The directory nodes, whether they answer, and how fast")
      ->callback([&action] { action = showNodes; });
  addAuth(program, action);
}

namespace {

struct RecordOptions {
  NodeAccess access;
  std::string type;
  std::string name;
  std::vector<std::string> attributes;
  std::vector<std::string> removals;
  int passwordDescriptor = -1;
};
using SharedOptions = std::shared_ptr<RecordOptions>;
using RecordCommand = ExitStatus (*)(const Session&, const RecordOptions&);

constexpr const char* kTypes = "users, groups, sharepoints, mounts, or a full name with a colon";

// A command of the group, with the options that all of them take.
CLI::App* addCommand(CLI::App& group, Action& action, const char* name, const char* description,
                     const SharedOptions& options, RecordCommand run) {
  auto* command = group.add_subcommand(name, description);
  command->add_option("--node", options->access.node, "Directory node, \"/Local\" if not given");
  addAccount(*command, options->access.account, "--admin-password-fd");
  command->callback([options, run, &action] {
    action = [options, run](const Session& session) { return run(session, *options); };
  });
  return command;
}

void addType(CLI::App& command, const SharedOptions& options) {
  command.add_option("TYPE", options->type, kTypes)->required();
}

void addName(CLI::App& command, const SharedOptions& options) {
  command.add_option("NAME", options->name, "The record's name")->required();
}

void addTypeAndName(CLI::App& command, const SharedOptions& options) {
  addType(command, options);
  addName(command, options);
}

ExitStatus runList(const Session& session, const RecordOptions& options) {
  return listRecords(session, options.access, options.type);
}
ExitStatus runShow(const Session& session, const RecordOptions& options) {
  return showRecord(session, options.access, options.type, options.name);
}
ExitStatus runPut(const Session& session, const RecordOptions& options) {
  return putRecord(session, options.access, options.type, options.name, options.attributes,
                   options.removals);
}
ExitStatus runDelete(const Session& session, const RecordOptions& options) {
  return deleteRecord(session, options.access, options.type, options.name);
}
ExitStatus runPassword(const Session& session, const RecordOptions& options) {
  return setPassword(session, options.access, options.name, options.passwordDescriptor);
}

void addPut(CLI::App& group, Action& action, const SharedOptions& options) {
  auto* command =
      addCommand(group, action, "put", "Create a record, or replace the attributes that are named",
                 options, runPut);
  addTypeAndName(*command, options);
  command->add_option("ATTRIBUTE=VALUE", options->attributes,
                      "Values; an attribute given several times has them all");
  command->add_option("--remove", options->removals, "Take the attribute away, repeatable")
      ->type_name("ATTRIBUTE")
      ->type_size(1)
      ->allow_extra_args(false);
}

void addPassword(CLI::App& group, Action& action, const SharedOptions& options) {
  auto* command =
      addCommand(group, action, "password",
                 "Set a user's password, from a prompt or standard input", options, runPassword);
  addName(*command, options);
  command
      ->add_option("--password-fd", options->passwordDescriptor,
                   "Descriptor to read the new password from")
      ->check(CLI::NonNegativeNumber);
}

}  // namespace

void addRecordCommands(CLI::App& program, Action& action) {
  auto* group = program.add_subcommand("record", "Directory records");
  group->require_subcommand(1);
  const auto options = std::make_shared<RecordOptions>();
  addType(*addCommand(*group, action, "list", "The names of all records", options, runList),
          options);
  addTypeAndName(*addCommand(*group, action, "show", "A record's attributes", options, runShow),
                 options);
  addPut(*group, action, options);
  addTypeAndName(*addCommand(*group, action, "delete", "Delete a record", options, runDelete),
                 options);
  addPassword(*group, action, options);
}

}  // namespace paddock::keelhouse
