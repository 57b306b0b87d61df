// State shared by a node of a directory server and the records that it returned: the connection of
// a session, and the user authenticated on it. Not thread-safe.
#pragma once

#include <memory>
#include <string>
#include <type_traits>

#include "platform/linux/ldap/ldap_server.h"

namespace paddock {

class LdapAccess {
 public:
  explicit LdapAccess(std::shared_ptr<LdapServer> server) : server_(std::move(server)) {}
  LdapAccess(const LdapAccess&) = delete;
  LdapAccess& operator=(const LdapAccess&) = delete;
  ~LdapAccess();

  const LdapOptions& options() const { return server_->options(); }

  // Scope of one operation on the server, with one allowance: `LdapOptions::deadline` and
  // `answerBytes`. Nested ones belong to the outer one.
  class Operation {
   public:
    explicit Operation(LdapAccess& access);
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;
    ~Operation();

   private:
    LdapAccess& access_;
    const bool isOutermost_;
  };

  // Returns work(LdapConnection&, bool again). Connects when there is no connection, and retries
  // once when that fails or the connection breaks during the call: `again` means that the first
  // attempt may have taken effect. Starts an operation unless one is in progress.
  template <typename Work>
  auto run(Work&& work) {
    const Operation operation(*this);
    for (bool again = false;; again = true) {
      try {
        return work(connection(), again);
      } catch (const LdapConnectionLost&) {
        dropConnections();
        if (again) throw;
      } catch (const LdapError& error) {
        noteFailure(error);
        throw;
      }
    }
  }

  // Returns work(), which changes records, and records whether the server accepted it.
  template <typename Work>
  auto change(Work&& work) {
    try {
      if constexpr (std::is_void_v<decltype(work())>) {
        work();
        noteAccepted();
      } else {
        auto result = work();
        noteAccepted();
        return result;
      }
    } catch (const LdapError& error) {
      noteRefused(error);
      throw;
    }
  }
  // The outcome of changes by the user authenticated here.
  LdapServer::WriteProof writeProof() const;

  // The cache of answers; null when a user has authenticated, who may have other access rights.
  LdapAnswers* answers() { return dn_.empty() ? &server_->answers() : nullptr; }

  // Whether the password is that of the entry. With `keep`, later requests of this object are made
  // as that entry. A wrong one changes nothing. Throws when the check is not possible.
  // Precondition: neither is empty.
  bool authenticate(const std::string& dn, const std::string& password, bool keep);

 private:
  LdapConnection& connection();
  std::unique_ptr<LdapConnection> authenticated(const std::string& dn, const std::string& password);
  // Null when the server refuses them.
  std::unique_ptr<LdapConnection> tryToAuthenticate(const std::string& dn,
                                                    const std::string& password);
  void noteFailure(const LdapError& error);
  void dropConnections();
  void noteAccepted();
  void noteRefused(const LdapError& error);

  const std::shared_ptr<LdapServer> server_;
  std::unique_ptr<LdapConnection> connection_;
  std::shared_ptr<LdapAllowance> allowance_;  // null between operations
  // The user who authenticated; no DN: the configured account.
  std::string dn_;
  Secret password_;
  // Of that user, who may be let do more or less than the account.
  LdapServer::WriteProof userProof_ = LdapServer::WriteProof::none;
};

}  // namespace paddock
