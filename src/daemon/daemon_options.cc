#include "daemon/daemon_options.h"

#include <CLI/CLI.hpp>

#include <filesystem>

namespace paddock {

namespace {

constexpr int kUsageStatus = 2;

}  // namespace

std::optional<Options> readOptions(int count, const char* const* arguments, int& exitStatus) {
  CLI::App app("The server-administration daemon.", "paddockd");
  Options options;
  app.set_version_flag("--version", std::string("paddockd ") + PADDOCK_VERSION);
  app.add_option("--root", options.root, "take every path of the system below DIR")
      ->type_name("DIR")
      ->check(CLI::ExistingDirectory);
  app.add_option("--config", options.configuration,
                 "read FILE instead of /etc/paddock/paddockd.toml")
      ->type_name("FILE");
  auto* check = app.add_flag("--check-config", options.checkConfiguration,
                             "say what is wrong with the configuration, and end");
  app.add_flag("--try-ldap", options.tryLdap, "ask the configured directory servers, too")
      ->needs(check);
  app.add_flag("--debug", options.debug, "log debug messages too");
  try {
    app.parse(count, arguments);
    return options;
  } catch (const CLI::ParseError& error) {
    exitStatus = app.exit(error) == 0 ? 0 : kUsageStatus;
    return std::nullopt;
  }
}

std::string rootFromArgument(const std::string& argument) {
  std::string root = std::filesystem::absolute(argument).lexically_normal().string();
  while (!root.empty() && root.back() == '/') root.pop_back();
  return root;
}

}  // namespace paddock
