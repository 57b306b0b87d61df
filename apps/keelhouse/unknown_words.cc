#include "keelhouse/unknown_words.h"

#include <CLI/CLI.hpp>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/suggested_words.h"

namespace paddock::keelhouse {

namespace {

// The commands from the program down to one of its own.
using Chain = std::vector<const CLI::App*>;

std::vector<const CLI::App*> commandsOf(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App* /*any*/) { return true; });
}

const CLI::App* commandOf(const CLI::App& group, const std::string& name) {
  for (const CLI::App* command : commandsOf(group)) {
    if (command->get_name() == name) return command;
  }
  return nullptr;
}

// "share add", without the program's name.
std::string wordsOf(const Chain& chain) {
  std::string words;
  for (std::size_t at = 1; at < chain.size(); ++at) {
    words += (at > 1 ? " " : "") + chain[at]->get_name();
  }
  return words;
}

std::string noCommand(const Chain& chain, const std::string& word) {
  std::vector<std::string> names;
  for (const CLI::App* command : commandsOf(*chain.back())) names.push_back(command->get_name());
  std::string before = wordsOf(chain);
  if (!before.empty()) before += ' ';
  return "there is no command \"" + before + word + "\"" + didYouMean(word, names, before);
}

const CLI::Option* optionOf(const Chain& chain, const std::string& name) {
  for (auto command = chain.rbegin(); command != chain.rend(); ++command) {
    if (const CLI::Option* option = (*command)->get_option_no_throw(name)) return option;
  }
  return nullptr;
}

std::string noOption(const Chain& chain, const std::string& name) {
  std::vector<std::string> names;
  for (const CLI::App* command : chain) {
    for (const CLI::Option* option : command->get_options()) {
      for (const std::string& word : option->get_lnames()) names.push_back("--" + word);
    }
  }
  const std::string command = wordsOf(chain);
  return (command.empty() ? "there is no option " : command + " has no option ") + name +
         didYouMean(name, names);
}

bool isOption(const std::string& word) { return word.size() > 1 && word.front() == '-'; }

// How many of the words from `next` on belong to the option before them.
std::size_t valuesOf(const CLI::Option& option, const std::vector<std::string>& words,
                     std::size_t next) {
  if (option.get_items_expected_max() == 0 || next >= words.size()) return 0;
  const bool needsValue = option.get_items_expected_min() > 0;
  return needsValue || !isOption(words[next]) ? 1 : 0;
}

}  // namespace

std::optional<std::string> unknownWord(const CLI::App& program,
                                       const std::vector<std::string>& words) {
  Chain chain{&program};
  for (std::size_t at = 0; at < words.size(); ++at) {
    const std::string& word = words[at];
    if (word == "--" || chain.back()->get_prefix_command()) break;
    if (isOption(word)) {
      const std::size_t equals = word.find('=');
      const std::string name = word.substr(0, equals);
      const CLI::Option* option = optionOf(chain, name);
      if (option == nullptr) return noOption(chain, name);
      if (equals == std::string::npos) at += valuesOf(*option, words, at + 1);
    } else if (!commandsOf(*chain.back()).empty()) {
      const CLI::App* command = commandOf(*chain.back(), word);
      if (command == nullptr) return noCommand(chain, word);
      chain.push_back(command);
    }
  }
  return std::nullopt;
}

std::string helpOn(const CLI::App& program, const std::vector<std::string>& words) {
  Chain chain{&program};
  std::string name = program.get_name();
  for (const std::string& word : words) {
    const CLI::App* command = commandOf(*chain.back(), word);
    if (command == nullptr) throw usageFailure(noCommand(chain, word));
    name += " " + command->get_name();
    chain.push_back(command);
  }
  // Not by the command's own routine, which goes on to what was parsed: `help` itself.
  return chain.back()->get_formatter()->make_help(chain.back(), name, CLI::AppFormatMode::Normal);
}

}  // namespace paddock::keelhouse
