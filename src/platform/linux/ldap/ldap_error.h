// The errors of a directory server as errors of the directory: docs/formats/ldap_records.md has the
// table.
#pragma once

#include <string>

#include "platform/directory.h"

namespace paddock {

// The errno for an LDAP result code (RFC 4511 and the API's own, ldap_error(3)).
Status ldapErrno(int result);

// The server's answer, or what the library met, as an error. `what` says what was tried,
// `diagnostic` is the server's own text, which may be empty.
class LdapError : public DirectoryError {
 public:
  LdapError(int result, const std::string& what, const std::string& diagnostic);
  LdapError(int result, Status status, const std::string& what, const std::string& diagnostic);

  int result() const { return result_; }

 private:
  int result_;
};

// The connection broke, or could not be made; nothing is known of a request that was under way.
class LdapConnectionLost : public LdapError {
 public:
  using LdapError::LdapError;
};

}  // namespace paddock
