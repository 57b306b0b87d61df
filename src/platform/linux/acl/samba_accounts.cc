#include "platform/linux/acl/samba_accounts.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>

#include "base/text.h"
#include "platform/directory.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/process/bounded_program.h"

namespace paddock {

namespace {

constexpr std::chrono::seconds kPatience{2};
constexpr std::chrono::seconds kLifetime{60};
constexpr std::size_t kMostOutput = 64U << 20U;

std::string_view trimmed(std::string_view text) {
  const auto isBlank = [](char character) {
    return character == ' ' || character == '\t' || character == '\r';
  };
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

template <typename Function>
void forEachLine(std::string_view text, Function function) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    function(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

// Of "NAME:   VALUE".
bool isField(std::string_view line, std::string_view name, std::string_view& value) {
  if (!line.starts_with(name) || line.substr(name.size(), 1) != ":") return false;
  value = trimmed(line.substr(name.size() + 1));
  return true;
}

// Only these can be in Samba's own database.
bool mayBeOfSambas(const nt_acl::Sid& sid) {
  constexpr std::uint32_t kOfADomain = 21;
  return sid.authority == nt_acl::kNtAuthority && sid.subAuthorities.size() > 1 &&
         (sid.subAuthorities[0] == kOfADomain || sid.subAuthorities[0] == nt_acl::kBuiltinDomain);
}

std::optional<std::uint32_t> gidOf(const std::string& hostGroup) {
  if (const auto group = nssGroup(hostGroup)) return group->gid;
  const auto number = parseInteger(hostGroup);
  if (!number || *number < 0 || *number >= std::numeric_limits<std::uint32_t>::max())
    return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

bool isThere(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

}  // namespace

const SambaAccount* SambaAccounts::find(const nt_acl::Sid& sid) const {
  const auto found = std::find_if(users.begin(), users.end(),
                                  [&](const SambaAccount& one) { return one.sid == sid; });
  return found != users.end() ? &*found : nullptr;
}

std::vector<const SambaAccount*> SambaAccounts::withPrimaryGroup(const nt_acl::Sid& sid) const {
  std::vector<const SambaAccount*> found;
  for (const SambaAccount& one : users)
    if (one.primaryGroup == sid) found.push_back(&one);
  return found;
}

const SambaGroup* SambaAccounts::findGroup(const nt_acl::Sid& sid) const {
  const auto found = std::find_if(groups.begin(), groups.end(),
                                  [&](const SambaGroup& one) { return one.sid == sid; });
  return found != groups.end() ? &*found : nullptr;
}

std::vector<SambaAccount> parseSambaUsers(std::string_view text) {
  std::vector<SambaAccount> found;
  std::string name;
  forEachLine(text, [&](std::string_view line) {
    std::string_view value;
    if (isField(line, "Unix username", value)) {
      name = value;
    } else if (isField(line, "User SID", value)) {
      const auto sid = nt_acl::parseSid(value);
      if (sid && !name.empty()) found.push_back({name, *sid, std::nullopt});
      name.clear();
    } else if (isField(line, "Primary Group SID", value) && !found.empty()) {
      if (!found.back().primaryGroup) found.back().primaryGroup = nt_acl::parseSid(value);
    }
  });
  return found;
}

// A line is "NAME (SID) -> GROUP", in which both names may hold anything.
std::vector<SambaGroup> parseSambaGroups(std::string_view text) {
  constexpr std::string_view kArrow = ") -> ";
  std::vector<SambaGroup> found;
  forEachLine(text, [&](std::string_view line) {
    const std::size_t arrow = line.rfind(kArrow);
    if (arrow == std::string_view::npos) return;
    const std::size_t bracket = line.rfind('(', arrow);
    if (bracket == std::string_view::npos) return;
    const auto sid = nt_acl::parseSid(line.substr(bracket + 1, arrow - bracket - 1));
    if (sid) found.push_back({*sid, std::string(trimmed(line.substr(arrow + kArrow.size())))});
  });
  return found;
}

std::string sambaParameter(std::string_view text, std::string_view name) {
  std::string found;
  forEachLine(text, [&](std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals != std::string_view::npos && trimmed(line.substr(0, equals)) == name)
      found = trimmed(line.substr(equals + 1));
  });
  return found;
}

SambaAccountReader::SambaAccountReader(std::string root) : root_(std::move(root)) {}

std::shared_ptr<const SambaAccounts> SambaAccountReader::read(std::string& why) {
  const MutexLock lock(mutex_);
  const Reading* reading = kept_.find(std::chrono::steady_clock::now());
  if (reading == nullptr) {
    Reading anew;
    anew.accounts = readAnew(anew.why);
    reading = &kept_.keep(std::move(anew), std::chrono::steady_clock::now() + kLifetime);
  }
  why = reading->why;
  return reading->accounts;
}

bool SambaAccountReader::run(const char* program, const std::vector<std::string>& arguments,
                             std::string& output, std::string& why) const {
  BoundedOutcome outcome = runBoundedProgram(root_ + program, arguments, kPatience, kMostOutput);
  if (outcome.status == 0 && outcome.exitStatus == 0) {
    output = std::move(outcome.output);
    return true;
  }
  why = root_ + program + ": " +
        (outcome.status == 0 ? "ended with status " + std::to_string(outcome.exitStatus)
                             : std::generic_category().message(outcome.status));
  return false;
}

std::shared_ptr<const SambaAccounts> SambaAccountReader::readAnew(std::string& why) const {
  std::string text;
  if (!run("/usr/bin/testparm", {"-s", "-v", "--section-name=global"}, text, why)) return nullptr;
  const std::string secrets = sambaParameter(text, "private dir") + "/secrets.tdb";
  const bool isInFiles = sambaParameter(text, "passdb backend").starts_with("tdbsam");
  const std::string mapping = sambaParameter(text, "state directory") + "/group_mapping.tdb";
  if (!isThere(secrets)) {
    why = "Samba has no accounts: " + secrets + " is missing";
    return nullptr;
  }
  const auto accounts = std::make_shared<SambaAccounts>();
  if (!run("/usr/bin/pdbedit", {"-L", "-v", "-d0"}, text, why)) return nullptr;
  accounts->users = parseSambaUsers(text);
  if (isInFiles && !isThere(mapping)) return accounts;
  if (!run("/usr/bin/net", {"groupmap", "list", "-d0"}, text, why)) return nullptr;
  accounts->groups = parseSambaGroups(text);
  return accounts;
}

int SambaAccountSids::principalOf(const nt_acl::Sid& sid, Principal& principal) {
  if (!mayBeOfSambas(sid)) return ENOENT;
  std::string why;
  const auto accounts = reader_->read(why);
  if (!accounts) return ENOENT;
  try {
    if (const SambaAccount* account = accounts->find(sid)) {
      const auto user = nssUser(account->name);
      if (!user) return ENOENT;
      principal = {PrincipalType::user, user->uid};
      return 0;
    }
    const SambaGroup* group = accounts->findGroup(sid);
    const auto gid = group != nullptr ? gidOf(group->hostGroup) : std::nullopt;
    if (!gid) return ENOENT;
    principal = {PrincipalType::group, *gid};
    return 0;
  } catch (const DirectoryError& error) {
    return error.status().value_or(EIO);
  }
}

int EitherSidResolver::principalOf(const nt_acl::Sid& sid, Principal& principal) {
  const int error = first_ ? first_->principalOf(sid, principal) : ENOENT;
  if (error == 0) return 0;
  return second_->principalOf(sid, principal) == 0 ? 0 : error;
}

}  // namespace paddock
