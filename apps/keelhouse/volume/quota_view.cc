#include "keelhouse/volume/quota_view.h"

#include <algorithm>
#include <vector>

#include "keelhouse/core/size_text.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

namespace {

struct Usage {
  const char* kind;
  std::string name;
  std::uint64_t used = 0;
  std::uint64_t free = 0;
  std::uint64_t limit = 0;  // 0: none
};

std::uint64_t amount(const Dictionary& entry, const char* key) {
  const Value* value = entry.find(key);
  if (value == nullptr) return 0;
  if (const auto* large = value->unsignedInteger()) return *large;
  return static_cast<std::uint64_t>(std::max<std::int64_t>(readInteger(value).value_or(0), 0));
}

void appendUsages(std::vector<Usage>& usages, const Dictionary& quotas, const char* key,
                  const char* kind) {
  const Array* entries = quotas.array(key);
  if (entries == nullptr) return;
  const auto first = static_cast<std::ptrdiff_t>(usages.size());
  for (const Value& value : *entries) {
    const Dictionary* entry = value.dictionary();
    if (entry == nullptr) continue;
    const std::string* name = entry->string("name");
    usages.push_back({kind, name != nullptr ? *name : "-", amount(*entry, "used"),
                      amount(*entry, "free"), amount(*entry, "limit")});
  }
  std::sort(usages.begin() + first, usages.end(), [](const Usage& left, const Usage& right) {
    return left.used != right.used ? left.used > right.used : left.name < right.name;
  });
}

std::string tableOf(const std::vector<Usage>& usages) {
  std::vector<std::vector<std::string>> rows{{"KIND", "NAME", "USED", "FREE", "LIMIT"}};
  for (const Usage& usage : usages) {
    rows.push_back({usage.kind, printable(usage.name), formatSize(usage.used),
                    formatSize(usage.free), usage.limit == 0 ? "none" : formatSize(usage.limit)});
  }
  return formatTable(rows);
}

}  // namespace

std::string formatQuotas(const std::string& volume, const Dictionary& quotas) {
  const bool enabled = quotas.boolean("isEnabled").value_or(false);
  std::string text = "Quotas of " + printable(volume) + " are " + (enabled ? "on" : "off") + ".\n";
  std::vector<Usage> usages;
  appendUsages(usages, quotas, "usr", "user");
  appendUsages(usages, quotas, "grp", "group");
  if (!usages.empty()) return text + tableOf(usages);
  if (quotas.array("usr") != nullptr) text += "Nobody is counted there.\n";
  return text;
}

}  // namespace paddock::keelhouse
