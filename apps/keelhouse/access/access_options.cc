#include <CLI/CLI.hpp>

#include <memory>

#include "keelhouse/access/acl_commands.h"
#include "keelhouse/access/denied_groups.h"
#include "keelhouse/access/effective_commands.h"
#include "keelhouse/access/privs_commands.h"
#include "keelhouse/core/command_options.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kEntryHelp =
    "An ENTRY is allow or deny, who, and the rights, as one word or three:\n"
    "  allow user:anna read,write:inherit\n"
    "  deny group:guests full\n"
    "Who: user:NAME, group:NAME, a GUID, or a name that is only one of the two.\n"
    "Rights: read, write, full, or list/read-data, add-file/write-data, search/execute, delete,\n"
    "  add-folder/append, delete-child, read-attributes, write-attributes, read-extended,\n"
    "  write-extended, read-security, write-security, change-owner.\n"
    "Behind a colon, who inherits: inherit, file-inherit, directory-inherit, limit-inherit,\n"
    "  only-inherit.";

struct AclOptions {
  std::string path;
  std::vector<std::string> words;
  std::optional<std::size_t> number;
  std::optional<std::string> from;
  bool projection = false;
  bool apply = false;
  bool strict = false;
  bool off = false;
  bool force = false;
};
using SharedOptions = std::shared_ptr<AclOptions>;

CLI::App* addCommand(CLI::App& group, const SharedOptions& options, const char* name,
                     const char* description) {
  auto* command = group.add_subcommand(name, description);
  command->add_option("PATH", options->path, "The folder or file, or the name of a share")
      ->required();
  return command;
}

void addForce(CLI::App& command, const SharedOptions& options) {
  command.add_flag("--force", options->force,
                   "Also when a complete list goes with it, and the mode lets people in again");
}

// The action `change` of a command that may make the list strict as well.
Action strictly(CLI::App& command, const SharedOptions& options, const Action& change) {
  command.add_flag("--strict", options->strict,
                   "Keep members of denied groups out at every door, also later ones");
  return [options, change](const Session& session) {
    if (!options->strict) return change(session);
    return changeStrictly(session, options->path, change);
  };
}

void addShow(CLI::App& group, Action& action, const SharedOptions& options) {
  auto* command = addCommand(group, options, "show", "The entries, in their order");
  command->add_flag("--projection", options->projection,
                    "What the kernel's own ACL says of them, and what it cannot say");
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return options->projection ? showAclProjection(session, options->path)
                                 : showAcl(session, options->path);
    };
  });
}

void addAclSet(CLI::App& group, Action& action, const SharedOptions& options) {
  auto* command = addCommand(group, options, "set", "Replace the ACL");
  auto* entries = command->add_option("ENTRY", options->words, "The new entries, in their order");
  command
      ->add_option(
          "--from", options->from,
          "Take the entries that acl show --json printed from FILE (\"-\": standard input)")
      ->type_name("FILE")
      ->excludes(entries);
  addForce(*command, options);
  command->footer(kEntryHelp);
  const Action change = [options](const Session& session) {
    return options->from ? setAclFrom(session, options->path, *options->from, options->force)
                         : setAcl(session, options->path, options->words);
  };
  command->callback([run = strictly(*command, options, change), &action] { action = run; });
}

void addClear(CLI::App& group, Action& action, const SharedOptions& options) {
  auto* command =
      addCommand(group, options, "clear", "Have no ACL, and say who can get in by the mode");
  command->callback([options, &action] {
    action = [options](const Session& session) { return clearAcl(session, options->path); };
  });
}

void addAdd(CLI::App& group, Action& action, const SharedOptions& options) {
  auto* command =
      addCommand(group, options, "add", "Add entries, at the end if not said otherwise");
  command->add_option("ENTRY", options->words, "The entries, in their order")->required();
  auto* at = command->add_option("--at", options->number, "Number of the first of them, from 1")
                 ->check(CLI::PositiveNumber);
  command
      ->add_flag_callback(
          "--first", [options] { options->number = 1; }, "Before all others, as --at 1")
      ->excludes(at);
  command->footer(kEntryHelp);
  const Action change = [options](const Session& session) {
    return addToAcl(session, options->path, options->words, options->number);
  };
  command->callback([run = strictly(*command, options, change), &action] { action = run; });
}

void addRemove(CLI::App& group, Action& action, const SharedOptions& options) {
  auto* command = addCommand(group, options, "remove", "Remove entries");
  command
      ->add_option("NUMBER|WHO", options->words,
                   "An entry's number, or user:NAME, group:NAME, a GUID: all entries about it")
      ->required();
  addForce(*command, options);
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return removeFromAcl(session, options->path, options->words, options->force);
    };
  });
}

void addInherit(CLI::App& group, Action& action, const SharedOptions& options) {
  auto* command = addCommand(group, options, "inherit",
                             "Its own entries, and those that its parent folder hands down");
  command->add_flag("--apply", options->apply, "Make that the ACL; it is only shown otherwise");
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return inheritAcl(session, options->path, options->apply);
    };
  });
}

void addStrict(CLI::App& group, Action& action, const SharedOptions& options) {
  auto* command = addCommand(group, options, "strict",
                             "Keep members of denied groups out at every door, also later ones");
  command->add_flag("--off", options->off, "No longer; the entries stay");
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return keepStrict(session, options->path, !options->off);
    };
  });
}

}  // namespace

void addAclCommands(CLI::App& program, Action& action) {
  auto* group = program.add_subcommand("acl", "Access-control lists");
  group->require_subcommand(1);
  const auto options = std::make_shared<AclOptions>();
  addShow(*group, action, options);
  addAclSet(*group, action, options);
  addClear(*group, action, options);
  addAdd(*group, action, options);
  addRemove(*group, action, options);
  addInherit(*group, action, options);
  addStrict(*group, action, options);
}

namespace {

constexpr PathOperand kPath{"PATH", "The folder or file, or the name of a share"};

struct EffectiveOptions {
  std::string path;
  std::string user;
  bool explain = false;
};

void addEffective(CLI::App& program, Action& action) {
  const auto options = std::make_shared<EffectiveOptions>();
  auto* command = program.add_subcommand("effective", "What a user may do with a folder or file");
  command->add_option(kPath.name, options->path, kPath.description)->required();
  command->add_option("USER", options->user, "The user's name, or the number of a uid")->required();
  command->add_flag("--explain", options->explain,
                    "Why: which entry or mode decided, and where the kernel disagrees");
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return options->explain ? explainEffective(session, options->path, options->user)
                              : showEffective(session, options->path, options->user);
    };
  });
}

}  // namespace

void addEffectiveCommands(CLI::App& program, Action& action) {
  addEffective(program, action);
  addPathCommand(program, action, kPath, "who",
                 "Everybody who may read, write or change permissions there", showWho);
}

namespace {

struct PrivilegeOptions {
  std::string path;
  PrivilegeChanges changes;
};

void addPrivilegesSet(CLI::App& group, Action& action) {
  auto* command = group.add_subcommand("set", "Change owner, group or mode");
  const auto options = std::make_shared<PrivilegeOptions>();
  command->add_option(kPath.name, options->path, kPath.description)->required();
  command->add_option("--owner", options->changes.owner, "The owner, a user's name");
  command->add_option("--group", options->changes.group, "The group, by its name");
  command->add_option("--mode", options->changes.mode,
                      "Three octal digits, such as 750, or four, such as 2770; with three a folder "
                      "keeps its set-id and sticky bits");
  auto* from = command->add_option("--from", options->changes.from,
                                   "Take all that privs show --json printed from FILE (\"-\": "
                                   "standard input)");
  from->type_name("FILE");
  for (const char* other : {"--owner", "--group", "--mode"}) {
    from->excludes(command->get_option(other));
  }
  command->callback([options, &action] {
    action = [options](const Session& session) {
      return setPrivileges(session, options->path, options->changes);
    };
  });
}

}  // namespace

void addPrivilegeCommands(CLI::App& program, Action& action) {
  auto* group = program.add_subcommand("privs", "Owner, group and mode");
  group->require_subcommand(1);
  addPathCommand(*group, action, kPath, "show", "Owner, group, mode and ACL", showPrivileges);
  addPrivilegesSet(*group, action);
}

}  // namespace paddock::keelhouse
