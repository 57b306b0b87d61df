// The options that name an account of a directory node.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "keelhouse/core/credentials.h"

namespace paddock::keelhouse {

// --admin, and behind it the options `descriptorNames` for the descriptor of its password; gives
// the former.
inline CLI::Option* addAccount(CLI::App& command, NodeAccount& account,
                               const std::string& descriptorNames) {
  auto* admin =
      command.add_option("--admin", account.name, "Account that authenticates on the node first");
  admin->type_name("USER")->check([](const std::string& name) {
    return std::string(name.empty() ? "an account needs a name" : "");
  });
  command
      .add_option(descriptorNames, account.passwordDescriptor,
                  "Descriptor to read that account's password from")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber)
      ->needs(admin);
  return admin;
}

}  // namespace paddock::keelhouse
