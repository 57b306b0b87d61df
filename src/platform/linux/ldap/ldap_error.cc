#include "platform/linux/ldap/ldap_error.h"

#include <ldap.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/text.h"

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

struct Meaning {
  int result;
  Status status;
};

// What is not here is EIO.
constexpr auto kMeanings = std::to_array<Meaning>({
    {LDAP_SUCCESS, 0},
    {LDAP_NO_SUCH_OBJECT, ENOENT},
    {LDAP_INVALID_CREDENTIALS, EACCES},
    {LDAP_INAPPROPRIATE_AUTH, EACCES},
    {LDAP_INSUFFICIENT_ACCESS, EACCES},
    {LDAP_STRONG_AUTH_REQUIRED, EACCES},
    {LDAP_STRONG_AUTH_NOT_SUPPORTED, EACCES},
    {LDAP_CONFIDENTIALITY_REQUIRED, EACCES},
    {LDAP_UNWILLING_TO_PERFORM, EACCES},
    {LDAP_REFERRAL, EACCES},
    {LDAP_ALREADY_EXISTS, EEXIST},
    {LDAP_TYPE_OR_VALUE_EXISTS, EEXIST},
    {LDAP_UNDEFINED_TYPE, EINVAL},
    {LDAP_INAPPROPRIATE_MATCHING, EINVAL},
    {LDAP_CONSTRAINT_VIOLATION, EINVAL},
    {LDAP_INVALID_SYNTAX, EINVAL},
    {LDAP_INVALID_DN_SYNTAX, EINVAL},
    {LDAP_NAMING_VIOLATION, EINVAL},
    {LDAP_OBJECT_CLASS_VIOLATION, EINVAL},
    {LDAP_NO_SUCH_ATTRIBUTE, EINVAL},
    {LDAP_PARAM_ERROR, EINVAL},
    {LDAP_FILTER_ERROR, EINVAL},
    {LDAP_SIZELIMIT_EXCEEDED, EOVERFLOW},
    {LDAP_ADMINLIMIT_EXCEEDED, EOVERFLOW},
    {LDAP_RESULTS_TOO_LARGE, EOVERFLOW},
    {LDAP_TIMELIMIT_EXCEEDED, ETIMEDOUT},
    {LDAP_TIMEOUT, ETIMEDOUT},
    {LDAP_BUSY, EBUSY},
    {LDAP_UNAVAILABLE, EBUSY},
    {LDAP_SERVER_DOWN, ECONNRESET},
    {LDAP_CONNECT_ERROR, EKEYREJECTED},
    {LDAP_PROTOCOL_ERROR, EPROTO},
    {LDAP_ENCODING_ERROR, EPROTO},
    {LDAP_DECODING_ERROR, EPROTO},
    {LDAP_LOCAL_ERROR, EPROTO},  // what came is no LDAP message
    {LDAP_NO_RESULTS_RETURNED, EPROTO},
    {LDAP_MORE_RESULTS_TO_RETURN, EPROTO},
    {LDAP_NO_MEMORY, ENOMEM},
    {LDAP_NOT_SUPPORTED, ENOTSUP},
    {LDAP_UNAVAILABLE_CRITICAL_EXTENSION, ENOTSUP},
});

}  // namespace

Status ldapErrno(int result) {
  const auto* const found = std::ranges::find(kMeanings, result, &Meaning::result);
  return found != kMeanings.end() ? found->status : EIO;
}

LdapError::LdapError(int result, const std::string& what, const std::string& diagnostic)
    : LdapError(result, ldapErrno(result), what, diagnostic) {}

LdapError::LdapError(int result, Status status, const std::string& what,
                     const std::string& diagnostic)
    : DirectoryError(status, describe(result, what, diagnostic)), result_(result) {}

}  // namespace paddock
