#include "platform/linux/ldap/ldap_uris.h"

#include <ldap.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>

#include "base/text.h"

namespace paddock {

namespace {

bool isKnownHost(const std::string& uri) {
  LDAPURLDesc* parsed = nullptr;
  if (ldap_url_parse(uri.c_str(), &parsed) != LDAP_URL_SUCCESS) return false;
  const std::unique_ptr<LDAPURLDesc, decltype(&ldap_free_urldesc)> owner(parsed,
                                                                         &ldap_free_urldesc);
  if (std::strcmp(parsed->lud_scheme, "ldapi") == 0 || parsed->lud_host == nullptr) return true;
  addrinfo* addresses = nullptr;
  if (::getaddrinfo(parsed->lud_host, nullptr, nullptr, &addresses) != 0) return false;
  ::freeaddrinfo(addresses);
  return true;
}

}  // namespace

bool hasUriOfScheme(std::string_view uris, std::string_view scheme) {
  const std::string begin = std::string(scheme) + "://";
  std::istringstream words{std::string(uris)};
  for (std::string uri; words >> uri;)
    if (asciiLower(uri).starts_with(begin)) return true;
  return false;
}

Status statusOfConnecting(const std::string& uris, int number) {
  std::istringstream words(uris);
  for (std::string uri; words >> uri;)
    if (!isKnownHost(uri)) return EHOSTUNREACH;
  switch (number) {
    case EHOSTUNREACH:
    case ENETUNREACH:
      return EHOSTUNREACH;
    case EACCES:
    case ECONNRESET:
      return number;
    default:
      return ECONNREFUSED;
  }
}

}  // namespace paddock
