#include "keelhouse/core/principal_name.h"

#include "base/guid.h"
#include "base/text.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

using Kind = PrincipalName::Kind;

constexpr std::string_view kUser = "user:";
constexpr std::string_view kGroup = "group:";

Kind takeKind(std::string_view& text) {
  for (const auto& [prefix, kind] : {std::pair{kUser, Kind::user}, {kGroup, Kind::group}}) {
    if (!text.starts_with(prefix)) continue;
    text.remove_prefix(prefix.size());
    return kind;
  }
  return Kind::either;
}

}  // namespace

PrincipalName parsePrincipal(std::string_view text) {
  if (const auto guid = parseGuid(text)) return {Kind::guid, guidText(*guid)};
  std::string_view name = text;
  const Kind kind = takeKind(name);
  if (name.empty()) {
    throw usageFailure("\"" + std::string(text) +
                       "\" names nobody: write user:NAME, group:NAME or a GUID");
  }
  if (!isValidUtf8(name)) throw usageFailure("\"" + std::string(text) + "\" is not UTF-8");
  return {kind, std::string(name)};
}

std::string formatPrincipal(const PrincipalName& name) {
  if (name.kind == Kind::user) return std::string(kUser) + name.name;
  if (name.kind == Kind::group) return std::string(kGroup) + name.name;
  return name.name;
}

}  // namespace paddock::keelhouse
