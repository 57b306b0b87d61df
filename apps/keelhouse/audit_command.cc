#include "keelhouse/audit_command.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "keelhouse/core/account_names.h"
#include "keelhouse/core/command_options.h"
#include "keelhouse/core/terminal_text.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::int64_t kLines = 20;
constexpr std::int64_t kMostLines = 10000;

std::string textOf(const Dictionary& line, const char* key) {
  const std::string* text = line.string(key);
  return text != nullptr ? printable(*text) : "-";
}

// By the host's account, or the bare number.
std::string userOf(const Dictionary& line) {
  const auto uid = line.integer("uid");
  if (!uid) return "-";
  const auto name = hostName({PrincipalType::user, static_cast<std::uint32_t>(*uid)});
  return name ? printable(*name) : std::to_string(*uid);
}

std::string outcomeOf(const Dictionary& line) {
  if (line.boolean("refused").value_or(false)) {
    const auto count = line.integer("count");
    return count ? "refused " + std::to_string(*count) + " times" : "refused";
  }
  if (line.boolean("interrupted").value_or(false)) return "interrupted";
  const auto status = line.integer("status");
  if (!status) return "-";
  return *status == 0 ? "done" : "status " + std::to_string(*status);
}

// The path, the first of several, or the record that the request is about.
std::string subjectOf(const Dictionary& line) {
  if (line.string("path") != nullptr) return textOf(line, "path");
  const Array* paths = line.array("paths");
  if (paths != nullptr && !paths->empty() && paths->front().string() != nullptr) {
    const std::string others = std::to_string(paths->size() - 1);
    return printable(*paths->front().string()) +
           (paths->size() == 1 ? std::string() : " and " + others + " more");
  }
  if (line.string("name") == nullptr) return "-";
  const std::string* node = line.string("node");
  return textOf(line, "name") + (node != nullptr ? " of " + printable(*node) : std::string());
}

}  // namespace

ExitStatus showAudit(const Session& session, std::int64_t limit) {
  const Dictionary reply = session.daemon.get("/v1/audit?limit=" + std::to_string(limit));
  const Array* lines = reply.array("lines");
  if (lines == nullptr) throw failure("the daemon's reply has no lines of the audit log");
  if (session.json) {
    session.out << wire::writeJsonPretty(*lines) << '\n';
    return ExitStatus::done;
  }
  std::vector<std::vector<std::string>> rows{
      {"TIME", "USER", "PLUG-IN", "OPERATION", "OUTCOME", "ABOUT"}};
  for (const Value& entry : *lines) {
    const Dictionary* line = entry.dictionary();
    if (line == nullptr) continue;
    rows.push_back({textOf(*line, "time"), userOf(*line), textOf(*line, "plugin"),
                    textOf(*line, "operation"), outcomeOf(*line), subjectOf(*line)});
  }
  if (rows.size() == 1) {
    session.out << "The audit log has no lines.\n";
  } else {
    session.out << formatTable(rows);
  }
  return ExitStatus::done;
}

void addAuditCommand(CLI::App& program, Action& action) {
  auto* command = program.add_subcommand(
      "audit", "Who asked for which change, and what became of it (administrators)");
  const auto limit = std::make_shared<std::int64_t>(kLines);
  command->add_option("--limit", *limit, "How many lines, the newest; 20 when not given")
      ->type_name("N")
      ->check(CLI::Range(std::int64_t{1}, kMostLines));
  command->callback([limit, &action] {
    action = [limit](const Session& session) { return showAudit(session, *limit); };
  });
}

}  // namespace paddock::keelhouse
