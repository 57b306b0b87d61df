#include "keelhouse/core/account_names.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <chrono>
#include <limits>
#include <system_error>

#include "base/guid.h"
#include "base/text.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/reply_status.h"

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

namespace {

constexpr std::size_t kFirstBuffer = 4096;
constexpr std::size_t kLargestBuffer = 64U << 20U;

// What the functions of the switch return for an entry that is not there: see getpwnam(3).
bool meansAbsent(int error) {
  return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
}

// What use(entry) makes of the entry that ask(entry, buffer, size, found) finds.
template <typename Entry, typename Ask, typename Use>
auto lookUp(Ask ask, Use use) -> std::optional<decltype(use(Entry{}))> {
  std::vector<char> buffer(kFirstBuffer);
  for (;;) {
    Entry entry{};
    Entry* found = nullptr;
    const int error = ask(&entry, buffer.data(), buffer.size(), &found);
    if (error == EINTR) continue;
    if (error == 0 && found != nullptr) return use(*found);
    if (error != ERANGE || buffer.size() >= kLargestBuffer) {
      if (meansAbsent(error)) return std::nullopt;
      throw failure("users and groups cannot be looked up: " +
                    std::generic_category().message(error));
    }
    buffer.resize(buffer.size() * 2);
  }
}

// What next() gives until it gives nothing.
template <typename Next>
std::vector<std::string> listNames(Next next, std::size_t most) {
  constexpr std::chrono::seconds kLongest{1};
  const auto end = std::chrono::steady_clock::now() + kLongest;
  std::vector<std::string> names;
  for (const char* name = next(); name != nullptr; name = next()) {
    if (names.size() == most || std::chrono::steady_clock::now() > end) return {};
    names.emplace_back(name);
  }
  return names;
}

std::vector<std::string> userNames(std::size_t most) {
  ::setpwent();
  auto names = listNames(
      []() -> const char* {
        const passwd* entry = ::getpwent();  // NOLINT(concurrency-mt-unsafe): one thread
        return entry != nullptr ? entry->pw_name : nullptr;
      },
      most);
  ::endpwent();
  return names;
}

std::vector<std::string> groupNames(std::size_t most) {
  ::setgrent();
  auto names = listNames(
      []() -> const char* {
        const group* entry = ::getgrent();  // NOLINT(concurrency-mt-unsafe): one thread
        return entry != nullptr ? entry->gr_name : nullptr;
      },
      most);
  ::endgrent();
  return names;
}

}  // namespace

std::optional<std::uint32_t> hostId(PrincipalType type, const std::string& name) {
  // A NUL would end the name early.
  if (name.find('\0') != std::string::npos) return std::nullopt;
  if (type == PrincipalType::user) {
    return lookUp<passwd>([&](auto... rest) { return ::getpwnam_r(name.c_str(), rest...); },
                          [](const passwd& entry) -> std::uint32_t { return entry.pw_uid; });
  }
  return lookUp<group>([&](auto... rest) { return ::getgrnam_r(name.c_str(), rest...); },
                       [](const group& entry) -> std::uint32_t { return entry.gr_gid; });
}

std::optional<std::string> hostName(const Principal& principal) {
  if (principal.type == PrincipalType::user) {
    return lookUp<passwd>([&](auto... rest) { return ::getpwuid_r(principal.id, rest...); },
                          [](const passwd& entry) -> std::string { return entry.pw_name; });
  }
  return lookUp<group>([&](auto... rest) { return ::getgrgid_r(principal.id, rest...); },
                       [](const group& entry) -> std::string { return entry.gr_name; });
}

std::vector<std::string> hostNames(PrincipalType type, std::size_t most) {
  return type == PrincipalType::user ? userNames(most) : groupNames(most);
}

namespace {

constexpr const char* kPlugin = "paddock_directory";
constexpr const char* kNode = "/Local";
// All nodes, one after the other.
constexpr const char* kSearchNode = "/Search";

const char* recordTypeOf(PrincipalType type) {
  return type == PrincipalType::user ? "dsRecTypeStandard:Users" : "dsRecTypeStandard:Groups";
}

const char* idAttributeOf(PrincipalType type) {
  return type == PrincipalType::user ? "dsAttrTypeStandard:UniqueID"
                                     : "dsAttrTypeStandard:PrimaryGroupID";
}

std::optional<std::uint32_t> idOf(const std::string& text) {
  const auto number = parseInteger(text);
  if (!number || *number < 0 || *number > std::numeric_limits<std::uint32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(*number);
}

LocalAccount accountOf(PrincipalType type, const Dictionary& record) {
  return {type, firstValue(record, "dsAttrTypeStandard:RecordName"),
          parseGuid(firstValue(record, "dsAttrTypeStandard:GeneratedUID")),
          idOf(firstValue(record, idAttributeOf(type)))};
}

void appendAccounts(std::vector<LocalAccount>& accounts, const Session& session,
                    PrincipalType type) {
  const Dictionary reply =
      session.daemon.call(kPlugin, "listRecords", {{"node", kNode}, {"type", recordTypeOf(type)}});
  requireStatus(reply, "status", "the directory's records cannot be listed");
  const Array* records = reply.array("records");
  if (records == nullptr) return;
  for (const Value& record : *records) {
    if (record.dictionary() != nullptr) accounts.push_back(accountOf(type, *record.dictionary()));
  }
}

}  // namespace

std::optional<LocalAccount> findAccount(const Session& session, PrincipalType type,
                                        const std::string& name) {
  const Dictionary reply = session.daemon.call(
      kPlugin, "getRecord", {{"node", kSearchNode}, {"type", recordTypeOf(type)}, {"name", name}});
  requireStatus(reply, "status", "the directory's record of " + name + " cannot be read");
  const Dictionary* record = reply.dictionary("record");
  if (record == nullptr) return std::nullopt;
  return accountOf(type, *record);
}

std::vector<LocalAccount> listLocalAccounts(const Session& session) {
  std::vector<LocalAccount> accounts;
  appendAccounts(accounts, session, PrincipalType::user);
  appendAccounts(accounts, session, PrincipalType::group);
  return accounts;
}

}  // namespace paddock::keelhouse
