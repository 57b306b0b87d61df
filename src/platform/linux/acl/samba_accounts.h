// The accounts of Samba's own database (passdb), without winbind: the SIDs of this server's own
// domain, S-1-5-21-..., and the groups that are mapped to groups of the host.
//
// Queried through Samba's programs pdbedit(8) and net(8), with the configuration that testparm(1)
// reads. Both would create missing databases; so they are run only when a server has created them
// already, and a query changes nothing.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "base/timed_cache.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/sid_resolver.h"

namespace paddock {

struct SambaAccount {
  std::string name;  // of the host's account
  nt_acl::Sid sid;
  // The group that every session of the account is in; "None", S-1-5-21-...-513, as a rule.
  std::optional<nt_acl::Sid> primaryGroup;
  friend bool operator==(const SambaAccount&, const SambaAccount&) = default;
};

struct SambaGroup {
  nt_acl::Sid sid;
  std::string hostGroup;  // its name, or its gid where it has none
  friend bool operator==(const SambaGroup&, const SambaGroup&) = default;
};

struct SambaAccounts {
  std::vector<SambaAccount> users;
  // Groups that are not here are in no session's token.
  std::vector<SambaGroup> groups;

  const SambaAccount* find(const nt_acl::Sid& sid) const;
  // The accounts whose primary group it is.
  std::vector<const SambaAccount*> withPrimaryGroup(const nt_acl::Sid& sid) const;
  const SambaGroup* findGroup(const nt_acl::Sid& sid) const;
};

// What "pdbedit -L -v" and "net groupmap list" print; what cannot be parsed is omitted.
std::vector<SambaAccount> parseSambaUsers(std::string_view text);
std::vector<SambaGroup> parseSambaGroups(std::string_view text);
// A parameter of a section that testparm has printed: "private dir". Empty when it is not there.
std::string sambaParameter(std::string_view text, std::string_view name);

// Caches the result for a while. Thread-safe.
class SambaAccountReader {
 public:
  // Programs are taken below `root`.
  explicit SambaAccountReader(std::string root);

  // Null when Samba's accounts cannot be determined: its programs are missing or fail, or no server
  // has created its databases. `why` then has the reason.
  std::shared_ptr<const SambaAccounts> read(std::string& why);

 private:
  struct Reading {
    std::shared_ptr<const SambaAccounts> accounts;
    std::string why;
  };

  std::shared_ptr<const SambaAccounts> readAnew(std::string& why) const;
  bool run(const char* program, const std::vector<std::string>& arguments, std::string& output,
           std::string& why) const;

  const std::string root_;
  Mutex mutex_;
  TimedValue<Reading> kept_ PADDOCK_GUARDED_BY(mutex_);
};

// Resolves SIDs by these accounts.
class SambaAccountSids final : public SidResolver {
 public:
  explicit SambaAccountSids(std::shared_ptr<SambaAccountReader> reader)
      : reader_(std::move(reader)) {}
  int principalOf(const nt_acl::Sid& sid, Principal& principal) override;

 private:
  const std::shared_ptr<SambaAccountReader> reader_;
};

// Chains two resolvers: the answer of the first that knows the SID. The first may be null.
class EitherSidResolver final : public SidResolver {
 public:
  EitherSidResolver(std::unique_ptr<SidResolver> first, std::unique_ptr<SidResolver> second)
      : first_(std::move(first)), second_(std::move(second)) {}
  int principalOf(const nt_acl::Sid& sid, Principal& principal) override;

 private:
  const std::unique_ptr<SidResolver> first_;
  const std::unique_ptr<SidResolver> second_;
};

}  // namespace paddock
