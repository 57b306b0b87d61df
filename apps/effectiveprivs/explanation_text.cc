#include <algorithm>

#include "base/printable.h"
#include "base/value.h"
#include "effectiveprivs/explanation.h"
#include "wire/json.h"

namespace paddock::effectiveprivs {

namespace {

using Row = std::vector<std::string>;

const char* yesOrNo(bool yes) { return yes ? "yes" : "no"; }

// Each column as wide as its widest cell, two blanks between.
std::string table(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t at = 0; at < row.size(); ++at)
      widths[at] = std::max(widths[at], row[at].size());
  }
  std::string text;
  for (const Row& row : rows) {
    for (std::size_t at = 0; at < row.size(); ++at) {
      text += "  " + row[at];
      if (at + 1 < row.size()) text.append(widths[at] - row[at].size(), ' ');
    }
    text += '\n';
  }
  return text;
}

std::string listText(const Explanation& explanation) {
  if (!explanation.entries) return "no list";
  const std::size_t count = *explanation.entries;
  return (explanation.isComplete ? "a complete list of " : "a list of ") + std::to_string(count) +
         (count == 1 ? " entry" : " entries");
}

std::string headText(const Explanation& explanation) {
  const std::string who = explanation.user.empty()
                              ? "uid " + std::to_string(explanation.uid) + ", which nobody has,"
                              : explanation.user + " (uid " + std::to_string(explanation.uid) + ")";
  return printable(who + " on " + explanation.path + ": owner " + explanation.owner + ", group " +
                   explanation.group + ", mode " + explanation.mode + ", " +
                   listText(explanation)) +
         "\n";
}

std::string kernelText(const Explanation& explanation) {
  if (explanation.kernelDisagrees.empty() && explanation.barrier.empty()) return {};
  std::string text =
      "What local programs and NFS clients see differs, by the kernel's own rules:\n";
  if (!explanation.barrier.empty())
    text +=
        "  it does not let the user through the folder " + printable(explanation.barrier) + "\n";
  std::vector<Row> rows;
  for (const Disagreement& one : explanation.kernelDisagrees)
    rows.push_back({yesOrNo(one.kernel), one.name, printable(one.why)});
  return text + table(rows);
}

Value permissionValue(const ExplainedPermission& permission) {
  Dictionary value{{"bit", permission.permission},
                   {"name", permission.name},
                   {"granted", permission.granted},
                   {"by", permission.by}};
  if (permission.entry) value.set("entry", static_cast<std::uint64_t>(*permission.entry));
  if (!permission.principal.empty()) value.set("principal", permission.principal);
  value.set("through", Array(permission.through.begin(), permission.through.end()));
  value.set("text", permission.text);
  return value;
}

Value disagreementValue(const Disagreement& disagreement) {
  return Dictionary{{"bit", disagreement.permission},
                    {"name", disagreement.name},
                    {"list", disagreement.list},
                    {"kernel", disagreement.kernel},
                    {"why", disagreement.why}};
}

template <typename Items, typename Function>
Array arrayOf(const Items& items, Function function) {
  Array array;
  for (const auto& item : items) array.emplace_back(function(item));
  return array;
}

}  // namespace

std::string explanationText(const Explanation& explanation) {
  std::vector<Row> rows;
  for (const ExplainedPermission& one : explanation.permissions)
    rows.push_back({yesOrNo(one.granted), one.name, printable(one.text)});
  return std::to_string(explanation.bitmap) + "\n" + headText(explanation) + table(rows) +
         kernelText(explanation);
}

std::string explanationJson(const Explanation& explanation) {
  Dictionary value{{"bitmap", explanation.bitmap},   {"path", explanation.path},
                   {"uid", explanation.uid},         {"known", !explanation.user.empty()},
                   {"folder", explanation.isFolder}, {"owner", explanation.owner},
                   {"group", explanation.group},     {"mode", explanation.mode}};
  if (!explanation.user.empty()) value.set("user", explanation.user);
  if (explanation.entries) {
    value.set("entries", static_cast<std::uint64_t>(*explanation.entries));
    value.set("complete", explanation.isComplete);
  }
  value.set("bits", arrayOf(explanation.permissions, permissionValue));
  value.set("kernelDisagrees", arrayOf(explanation.kernelDisagrees, disagreementValue));
  if (!explanation.barrier.empty()) value.set("barrier", explanation.barrier);
  return wire::writeJson(value);
}

}  // namespace paddock::effectiveprivs
