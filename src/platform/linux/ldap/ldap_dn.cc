#include "platform/linux/ldap/ldap_dn.h"

#include <ldap.h>

#include <memory>

#include "platform/linux/ldap/ldap_error.h"
#include "platform/linux/ldap/ldap_library.h"

namespace paddock {

namespace {

struct FreeDn {
  void operator()(LDAPRDN* dn) const { ldap_dnfree(dn); }
};

std::unique_ptr<LDAPRDN, FreeDn> parse(const std::string& text) {
  LDAPDN dn = nullptr;
  if (text.find('\0') != std::string::npos) return nullptr;
  const int result = ldap_str2dn(text.c_str(), &dn, LDAP_DN_FORMAT_LDAPV3);
  if (result == LDAP_NO_MEMORY) throw LdapError(result, "reading the name " + text, "");
  return std::unique_ptr<LDAPRDN, FreeDn>(result == LDAP_SUCCESS ? dn : nullptr);
}

}  // namespace

std::vector<std::pair<std::string, std::string>> firstComponent(const std::string& dn) {
  std::vector<std::pair<std::string, std::string>> parts;
  const auto parsed = parse(dn);
  if (!parsed || parsed.get()[0] == nullptr) return parts;
  for (LDAPAVA** part = parsed.get()[0]; *part != nullptr; ++part)
    parts.emplace_back(textOf((*part)->la_attr), textOf((*part)->la_value));
  return parts;
}

bool isDistinguishedName(const std::string& text) { return !firstComponent(text).empty(); }

}  // namespace paddock
