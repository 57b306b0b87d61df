#include "exports/export_options.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

#include "base/text.h"

namespace paddock {

namespace {

constexpr std::array<std::string_view, 31> kFlags = {"ro",
                                                     "rw",
                                                     "secure",
                                                     "insecure",
                                                     "sync",
                                                     "async",
                                                     "wdelay",
                                                     "no_wdelay",
                                                     "hide",
                                                     "nohide",
                                                     "crossmnt",
                                                     "nocrossmnt",
                                                     "root_squash",
                                                     "no_root_squash",
                                                     "all_squash",
                                                     "acl",
                                                     "no_acl",
                                                     "subtree_check",
                                                     "no_subtree_check",
                                                     "no_all_squash",
                                                     "secure_locks",
                                                     "auth_nlm",
                                                     "insecure_locks",
                                                     "no_auth_nlm",
                                                     "nordirplus",
                                                     "pnfs",
                                                     "no_pnfs",
                                                     "security_label",
                                                     "mp",
                                                     "mountpoint",
                                                     "fsid=root"};

constexpr std::array<std::string_view, 4> kWithText = {"mp=", "mountpoint=", "refer=", "replicas="};

constexpr std::array<std::string_view, 7> kFlavors = {"sys",  "unix",  "none", "null",
                                                      "krb5", "krb5i", "krb5p"};

constexpr std::string_view kHexadecimalDigits = "0123456789abcdefABCDEF";
constexpr std::ptrdiff_t kUuidDigits = 32;

constexpr std::int64_t kLowestId = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t kHighestId = std::numeric_limits<std::uint32_t>::max();

// exportfs keeps 32 bits of a number: a larger one would become another id, 0 for one.
bool isNumber(std::string_view text, std::int64_t lowest) {
  const auto number = parseInteger(text);
  return number && *number >= lowest && *number <= kHighestId;
}

// 32 hexadecimal digits, with dashes or colons anywhere between them.
bool isUuid(std::string_view text) {
  const auto isDigit = [](char c) { return kHexadecimalDigits.find(c) != std::string_view::npos; };
  return std::count_if(text.begin(), text.end(), isDigit) == kUuidDigits &&
         std::all_of(text.begin(), text.end(),
                     [&](char c) { return isDigit(c) || c == '-' || c == ':'; });
}

bool areFlavors(std::string_view list) {
  while (true) {
    const std::size_t colon = std::min(list.find(':'), list.size());
    if (std::find(kFlavors.begin(), kFlavors.end(), list.substr(0, colon)) == kFlavors.end()) {
      return false;
    }
    if (colon == list.size()) return true;
    list.remove_prefix(colon + 1);
  }
}

// The value of `option` when it begins with `name`, which ends in '='.
bool valueOf(std::string_view option, std::string_view name, std::string_view& value) {
  if (option.substr(0, name.size()) != name) return false;
  value = option.substr(name.size());
  return true;
}

}  // namespace

bool isExportOption(std::string_view option) {
  if (std::find(kFlags.begin(), kFlags.end(), option) != kFlags.end()) return true;
  std::string_view value;
  if (valueOf(option, "anonuid=", value) || valueOf(option, "anongid=", value)) {
    return isNumber(value, kLowestId);
  }
  if (valueOf(option, "fsid=", value)) return isNumber(value, 0) || isUuid(value);
  if (valueOf(option, "sec=", value)) return areFlavors(value);
  return std::any_of(kWithText.begin(), kWithText.end(), [&](std::string_view name) {
    return valueOf(option, name, value) && !value.empty();
  });
}

}  // namespace paddock
