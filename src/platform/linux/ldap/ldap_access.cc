#include "platform/linux/ldap/ldap_access.h"

#include <ldap.h>

#include <cerrno>

namespace paddock {

namespace {

// What a server says of a name or a password that is wrong, and of an account that is closed.
bool isRefusal(int result) {
  switch (result) {
    case LDAP_INVALID_CREDENTIALS:
    case LDAP_NO_SUCH_OBJECT:
    case LDAP_INVALID_DN_SYNTAX:
    case LDAP_INAPPROPRIATE_AUTH:
    case LDAP_INSUFFICIENT_ACCESS:
    case LDAP_UNWILLING_TO_PERFORM:
      return true;
    default:
      return false;
  }
}

// The result codes of a read-only server.
bool isReadOnlyServer(int result) {
  return result == LDAP_UNWILLING_TO_PERFORM || result == LDAP_REFERRAL;
}

}  // namespace

LdapAccess::Operation::Operation(LdapAccess& access)
    : access_(access), isOutermost_(access.allowance_ == nullptr) {
  if (!isOutermost_) return;
  const LdapOptions& options = access.options();
  access.allowance_ = std::make_shared<LdapAllowance>(options.deadline, options.answerBytes);
}

LdapAccess::Operation::~Operation() {
  if (!isOutermost_) return;
  access_.allowance_.reset();
  if (access_.connection_) access_.connection_->count(nullptr);
}

LdapAccess::~LdapAccess() {
  if (connection_ && dn_.empty()) server_->giveBack(std::move(connection_));
}

LdapConnection& LdapAccess::connection() {
  if (!connection_)
    connection_ = dn_.empty() ? server_->take(allowance_) : authenticated(dn_, password_.text());
  connection_->count(allowance_);
  return *connection_;
}

std::unique_ptr<LdapConnection> LdapAccess::authenticated(const std::string& dn,
                                                          const std::string& password) {
  auto made = server_->open(allowance_);
  made->bind(dn, password);
  return made;
}

std::unique_ptr<LdapConnection> LdapAccess::tryToAuthenticate(const std::string& dn,
                                                              const std::string& password) {
  for (bool again = false;; again = true) {
    try {
      return authenticated(dn, password);
    } catch (const LdapConnectionLost&) {
      if (again) throw;
    } catch (const LdapError& error) {
      if (isRefusal(error.result())) return nullptr;
      server_->noteFailure(error);
      throw;
    }
  }
}

bool LdapAccess::authenticate(const std::string& dn, const std::string& password, bool keep) {
  const Operation operation(*this);
  auto made = tryToAuthenticate(dn, password);
  if (!made) return false;
  if (!keep) return true;
  if (connection_ && dn_.empty()) server_->giveBack(std::move(connection_));
  connection_ = std::move(made);
  dn_ = dn;
  password_.set(password);
  userProof_ = LdapServer::WriteProof::none;
  return true;
}

LdapServer::WriteProof LdapAccess::writeProof() const {
  const bool ownProof = !dn_.empty() && userProof_ != LdapServer::WriteProof::none;
  return ownProof ? userProof_ : server_->writeProof();
}

void LdapAccess::noteAccepted() {
  userProof_ = LdapServer::WriteProof::accepted;
  server_->setWriteProof(LdapServer::WriteProof::accepted);
}

void LdapAccess::noteRefused(const LdapError& error) {
  // ENOTSUP: it does not have our schema.
  const bool byServer = isReadOnlyServer(error.result()) || error.status() == ENOTSUP;
  if (!byServer && error.result() != LDAP_INSUFFICIENT_ACCESS) return;
  userProof_ = LdapServer::WriteProof::refused;
  // One user's lack of rights does not apply to the account, nor does an anonymous session's.
  const bool byAccount = dn_.empty() && !options().bindDn.empty();
  if (byServer || byAccount) server_->setWriteProof(LdapServer::WriteProof::refused);
}

// What broke this one, a server that was started again say, has broken the idle ones too.
void LdapAccess::dropConnections() {
  connection_.reset();
  server_->closeIdle();
  if (userProof_ == LdapServer::WriteProof::refused) userProof_ = LdapServer::WriteProof::none;
}

void LdapAccess::noteFailure(const LdapError& error) {
  server_->noteFailure(error);
  if (connection_ && !connection_->isUsable()) connection_.reset();
}

}  // namespace paddock
