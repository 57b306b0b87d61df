// What a node of a directory server shares with the records that it handed out: the one connection
// of a session, and who is authenticated on it. For one thread at a time.
#pragma once

#include <memory>
#include <string>
#include <type_traits>

#include "platform/linux/ldap/ldap_server.h"
#include "platform/linux/ldap/secret.h"

namespace paddock {

class LdapAccess {
 public:
  explicit LdapAccess(std::shared_ptr<LdapServer> server) : server_(std::move(server)) {}
  LdapAccess(const LdapAccess&) = delete;
  LdapAccess& operator=(const LdapAccess&) = delete;
  ~LdapAccess();

  const LdapOptions& options() const { return server_->options(); }

  // What is done while there is such an object is one operation on the server, with one allowance:
  // `LdapOptions::deadline` and `answerBytes`. Those inside another belong to it.
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

  // Returns work(LdapConnection&, bool again). Connects when there is no connection, and once more
  // when that fails or the connection breaks under the work, which is then done again: `again` says
  // that the first time may have been done after all. An operation, where none is under way.
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

  // Returns work(), which changes records, and notes whether the server took it.
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
  // What is known of changes by whoever is authenticated here.
  LdapServer::WriteProof writeProof() const;

  // Where answers are kept; null when a user has authenticated, who may see other things.
  LdapAnswers* answers() { return dn_.empty() ? &server_->answers() : nullptr; }

  // Whether the password is that of the entry. With `keep`, this object's work is done as that
  // entry from now on. A wrong one leaves everything as it was. Throws when nobody can tell.
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
