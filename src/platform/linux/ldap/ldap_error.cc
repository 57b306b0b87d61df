#include "platform/linux/ldap/ldap_error.h"

#include <ldap.h>

#include <cerrno>

#include "base/printable.h"

namespace paddock {

namespace {

// What a server may add to a line of the log.
constexpr std::size_t kLongestText = 500;

std::string shortened(const std::string& text) {
  return text.size() <= kLongestText ? text : text.substr(0, kLongestText) + "...";
}

std::string describe(int result, const std::string& what, const std::string& diagnostic) {
  std::string text = shortened(what) + ": " + ldap_err2string(result);
  if (!diagnostic.empty()) text += " (" + shortened(diagnostic) + ")";
  return printable(text);
}

}  // namespace

Status ldapErrno(int result) {
  switch (result) {
    case LDAP_SUCCESS:
      return 0;
    case LDAP_NO_SUCH_OBJECT:
      return ENOENT;
    case LDAP_INVALID_CREDENTIALS:
    case LDAP_INAPPROPRIATE_AUTH:
    case LDAP_INSUFFICIENT_ACCESS:
    case LDAP_STRONG_AUTH_REQUIRED:
    case LDAP_STRONG_AUTH_NOT_SUPPORTED:
    case LDAP_CONFIDENTIALITY_REQUIRED:
    case LDAP_UNWILLING_TO_PERFORM:
    case LDAP_REFERRAL:
      return EACCES;
    case LDAP_ALREADY_EXISTS:
    case LDAP_TYPE_OR_VALUE_EXISTS:
      return EEXIST;
    case LDAP_UNDEFINED_TYPE:
    case LDAP_INAPPROPRIATE_MATCHING:
    case LDAP_CONSTRAINT_VIOLATION:
    case LDAP_INVALID_SYNTAX:
    case LDAP_INVALID_DN_SYNTAX:
    case LDAP_NAMING_VIOLATION:
    case LDAP_OBJECT_CLASS_VIOLATION:
    case LDAP_NO_SUCH_ATTRIBUTE:
    case LDAP_PARAM_ERROR:
    case LDAP_FILTER_ERROR:
      return EINVAL;
    case LDAP_SIZELIMIT_EXCEEDED:
    case LDAP_ADMINLIMIT_EXCEEDED:
    case LDAP_RESULTS_TOO_LARGE:
      return EOVERFLOW;
    case LDAP_TIMELIMIT_EXCEEDED:
    case LDAP_TIMEOUT:
      return ETIMEDOUT;
    case LDAP_BUSY:
    case LDAP_UNAVAILABLE:
      return EBUSY;
    case LDAP_SERVER_DOWN:
      return ECONNRESET;
    case LDAP_CONNECT_ERROR:
      return EKEYREJECTED;
    case LDAP_PROTOCOL_ERROR:
    case LDAP_ENCODING_ERROR:
    case LDAP_DECODING_ERROR:
    case LDAP_LOCAL_ERROR:  // what came is no LDAP message
    case LDAP_NO_RESULTS_RETURNED:
    case LDAP_MORE_RESULTS_TO_RETURN:
      return EPROTO;
    case LDAP_NO_MEMORY:
      return ENOMEM;
    case LDAP_NOT_SUPPORTED:
    case LDAP_UNAVAILABLE_CRITICAL_EXTENSION:
      return ENOTSUP;
    default:
      return EIO;
  }
}

LdapError::LdapError(int result, const std::string& what, const std::string& diagnostic)
    : LdapError(result, ldapErrno(result), what, diagnostic) {}

LdapError::LdapError(int result, Status status, const std::string& what,
                     const std::string& diagnostic)
    : DirectoryError(status, describe(result, what, diagnostic)), result_(result) {}

}  // namespace paddock
