#include "keelhouse/volume/quota_view.h"

#include <algorithm>
#include <vector>

#include "keelhouse/core/number_text.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/propagate/run_text.h"
#include "protocol/keys.h"

namespace paddock::keelhouse {

namespace {

constexpr std::uint64_t kNearPercent = 90;

using Row = std::vector<std::string>;

std::uint64_t amountOf(const Dictionary& entry, const char* key) {
  const Value* value = entry.find(key);
  if (value == nullptr) return 0;
  if (const auto* large = value->unsignedInteger()) return *large;
  return static_cast<std::uint64_t>(std::max<std::int64_t>(readInteger(value).value_or(0), 0));
}

LimitedAmount bytesOf(const Dictionary& entry) {
  return {amountOf(entry, "usedBytes"), amountOf(entry, "softBytes"), amountOf(entry, "hardBytes"),
          amountOf(entry, "bytesGraceEnd")};
}
LimitedAmount filesOf(const Dictionary& entry) {
  return {amountOf(entry, "usedFiles"), amountOf(entry, "softFiles"), amountOf(entry, "hardFiles"),
          amountOf(entry, "filesGraceEnd")};
}

std::string sizeLimit(std::uint64_t bytes) { return bytes == 0 ? "none" : formatSize(bytes); }
std::string countLimit(std::uint64_t files) { return files == 0 ? "none" : std::to_string(files); }

struct Usage {
  const char* kind;
  Dictionary entry;
  std::string remark;
};

void append(std::vector<Usage>& usages, const Dictionary& usage, bool areGroups) {
  const Array* entries = usage.array(areGroups ? "groups" : "users");
  if (entries == nullptr) return;
  const bool isEnforced =
      usage.boolean(areGroups ? "groupsEnforced" : "usersEnforced").value_or(false);
  const std::uint64_t now = amountOf(usage, "time");
  const auto first = static_cast<std::ptrdiff_t>(usages.size());
  for (const Value& value : *entries) {
    const Dictionary* entry = value.dictionary();
    if (entry == nullptr) continue;
    std::string remark = limitRemark(bytesOf(*entry), now, isEnforced);
    const std::string ofFiles = limitRemark(filesOf(*entry), now, isEnforced);
    if (!ofFiles.empty()) remark += (remark.empty() ? "files: " : "; files: ") + ofFiles;
    usages.push_back({areGroups ? "group" : "user", *entry, remark.empty() ? "-" : remark});
  }
  std::sort(usages.begin() + first, usages.end(), [](const Usage& left, const Usage& right) {
    return amountOf(left.entry, "usedBytes") > amountOf(right.entry, "usedBytes");
  });
}

Row rowOf(const char* kind, const Dictionary& entry) {
  const std::string* name = entry.string("name");
  const LimitedAmount bytes = bytesOf(entry);
  const LimitedAmount files = filesOf(entry);
  return {kind,
          name != nullptr ? printable(*name) : "-",
          formatSize(bytes.used),
          sizeLimit(bytes.soft),
          sizeLimit(bytes.hard),
          std::to_string(files.used),
          countLimit(files.soft),
          countLimit(files.hard)};
}

const Row kHead{"KIND", "NAME", "USED", "SOFT", "HARD", "FILES", "SOFT", "HARD"};

const char* stateOf(const Dictionary& usage, const char* key) {
  return usage.boolean(key).value_or(false) ? "on" : "off";
}

std::string stateLine(const std::string& volume, const Dictionary& usage) {
  std::string line = "Quotas of " + printable(volume) + " are " + stateOf(usage, "usersEnforced");
  if (usage.contains("groups")) {
    line += std::string(" for users and ") + stateOf(usage, "groupsEnforced") + " for groups";
  }
  return line + ".\n";
}

std::string timeLeft(std::uint64_t seconds) {
  constexpr std::uint64_t kSecondsOfDay = 86400;
  return seconds < 2 * kSecondsOfDay ? durationText(seconds)
                                     : std::to_string(seconds / kSecondsOfDay) + " days";
}

bool isNear(std::uint64_t used, std::uint64_t limit) {
  return static_cast<long double>(used) * 100 > static_cast<long double>(limit) * kNearPercent;
}

std::string percentOf(std::uint64_t used, std::uint64_t limit) {
  const long double percent =
      static_cast<long double>(used) * 100 / static_cast<long double>(limit);
  return std::to_string(static_cast<std::uint64_t>(percent)) + " %";
}

}  // namespace

std::string limitRemark(const LimitedAmount& amount, std::uint64_t now, bool isEnforced) {
  const std::string unless = isEnforced ? "" : " (not enforced)";
  if (amount.hard != 0 && amount.used >= amount.hard) return "at the hard limit" + unless;
  if (amount.soft != 0 && amount.used > amount.soft) {
    if (amount.graceEnd == 0 || !isEnforced) return "over the soft limit" + unless;
    if (amount.graceEnd <= now) return "over the soft limit, grace has run out";
    return "over the soft limit, " + timeLeft(amount.graceEnd - now) + " left";
  }
  const std::uint64_t limit = amount.soft != 0 ? amount.soft : amount.hard;
  if (limit == 0 || !isNear(amount.used, limit)) return {};
  return percentOf(amount.used, limit) + " of the " + (amount.soft != 0 ? "soft" : "hard") +
         " limit" + unless;
}

std::string formatUsage(const std::string& volume, const Dictionary& usage) {
  const std::string text = stateLine(volume, usage);
  std::vector<Usage> usages;
  append(usages, usage, false);
  append(usages, usage, true);
  if (usages.empty()) return text + "Nobody is counted there.\n";
  std::vector<Row> rows{kHead};
  rows[0].emplace_back("REMARK");
  for (const Usage& one : usages) {
    rows.push_back(rowOf(one.kind, one.entry));
    rows.back().push_back(one.remark);
  }
  return text + formatTable(rows);
}

std::string formatLimits(const Dictionary& entry, bool isGroup) {
  return formatTable({kHead, rowOf(isGroup ? "group" : "user", entry)});
}

namespace {

struct UsageRow {
  const char* kind;
  std::string name;
  std::uint64_t used = 0;
  std::uint64_t free = 0;
  std::uint64_t limit = 0;  // 0: none
};

void appendUsages(std::vector<UsageRow>& usages, const Dictionary& quotas, const char* key,
                  const char* kind) {
  const Array* entries = quotas.array(key);
  if (entries == nullptr) return;
  const auto first = static_cast<std::ptrdiff_t>(usages.size());
  for (const Value& value : *entries) {
    const Dictionary* entry = value.dictionary();
    if (entry == nullptr) continue;
    const std::string* name = entry->string("name");
    usages.push_back({kind, name != nullptr ? *name : "-", amountOf(*entry, "used"),
                      amountOf(*entry, "free"), amountOf(*entry, "limit")});
  }
  std::sort(usages.begin() + first, usages.end(), [](const UsageRow& left, const UsageRow& right) {
    return left.used != right.used ? left.used > right.used : left.name < right.name;
  });
}

std::string tableOf(const std::vector<UsageRow>& usages) {
  std::vector<std::vector<std::string>> rows{{"KIND", "NAME", "USED", "FREE", "LIMIT"}};
  for (const UsageRow& usage : usages) {
    rows.push_back({usage.kind, printable(usage.name), formatSize(usage.used),
                    formatSize(usage.free), usage.limit == 0 ? "none" : formatSize(usage.limit)});
  }
  return formatTable(rows);
}

}  // namespace

std::string formatQuotas(const std::string& volume, const Dictionary& quotas) {
  const bool enabled = quotas.boolean(protocol::kIsEnabled).value_or(false);
  std::string text = "Quotas of " + printable(volume) + " are " + (enabled ? "on" : "off") + ".\n";
  std::vector<UsageRow> usages;
  appendUsages(usages, quotas, "usr", "user");
  appendUsages(usages, quotas, "grp", "group");
  if (!usages.empty()) return text + tableOf(usages);
  if (quotas.array("usr") != nullptr) text += "Nobody is counted there.\n";
  return text;
}

}  // namespace paddock::keelhouse
