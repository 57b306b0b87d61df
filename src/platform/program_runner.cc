#include "platform/program_runner.h"

#include <utility>

#include "base/status.h"

namespace paddock {

namespace {

constexpr std::size_t kLongestErrorOutput = 64U << 10U;

}  // namespace

std::optional<std::vector<std::string>> configuredTexts(const Dictionary& configuration,
                                                        std::string_view table,
                                                        std::string_view key) {
  const Dictionary* keys = configuration.dictionary(table);
  const Array* values = keys != nullptr ? keys->array(key) : nullptr;
  if (values == nullptr) return std::nullopt;
  std::vector<std::string> texts;
  for (const Value& value : *values) {
    if (value.string() != nullptr) texts.push_back(*value.string());
  }
  return texts;
}

Dictionary runConfiguredCommand(ProgramRunner& runner,
                                const std::vector<std::string>& argumentVector) {
  if (argumentVector.empty()) return {{"status", kSuccess}};
  const std::string& program = argumentVector.front();
  ProgramOutcome outcome = runner.run(
      program, std::vector<std::string>(argumentVector.begin() + 1, argumentVector.end()));
  Dictionary reply;
  if (outcome.status == 0) {
    reply.set("status", outcome.exitStatus);
  } else {
    reply.set("status", outcome.status);
    reply.set("error", program + ": " + sharing_error_string(outcome.status));
  }
  if (outcome.errorOutput.size() > kLongestErrorOutput) {
    outcome.errorOutput.resize(kLongestErrorOutput);
  }
  if (!outcome.errorOutput.empty()) reply.set("errorOutput", std::move(outcome.errorOutput));
  return reply;
}

}  // namespace paddock
