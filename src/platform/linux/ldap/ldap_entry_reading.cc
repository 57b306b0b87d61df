#include "platform/linux/ldap/ldap_entry_reading.h"

#include <algorithm>

#include "base/text.h"
#include "platform/linux/ldap/ldap_library.h"

namespace paddock {

namespace {

struct FreeBer {
  void operator()(BerElement* element) const { ber_free(element, 0); }
};

// The list of values; what they hold is the message's.
struct FreeValues {
  void operator()(berval* values) const { ber_memfree(values); }
};

// The attribute's name without options ("cn;lang-en").
std::string plainName(const std::string& description) {
  std::string name = asciiLower(description);
  name.resize(std::min(name.size(), name.find(';')));
  return name;
}

// Reads the next attribute; `more` is false behind the last one.
int readAttribute(LDAP* handle, LDAPMessage* message, BerElement* place, LdapEntry& entry,
                  LdapAllowance& allowance, bool& more) {
  berval name{};
  BerVarray values = nullptr;
  const int result = ldap_get_attribute_ber(handle, message, place, &name, &values);
  const std::unique_ptr<berval, FreeValues> owner(values);
  more = result == LDAP_SUCCESS && name.bv_val != nullptr;
  if (!more) return result;
  if (!allowance.spend(LdapAllowance::kPerAttribute + name.bv_len)) return LDAP_RESULTS_TOO_LARGE;
  std::vector<std::string>& texts = entry.attributes[plainName(textOf(name))];
  for (const berval* value = values; value != nullptr && value->bv_val != nullptr; ++value) {
    if (!allowance.spend(LdapAllowance::kPerValue + value->bv_len)) return LDAP_RESULTS_TOO_LARGE;
    texts.push_back(textOf(*value));
  }
  return result;
}

}  // namespace

int readLdapEntry(ldap* handle, ldapmsg* message, LdapEntry& entry, LdapAllowance& allowance) {
  BerElement* begin = nullptr;
  berval dn{};
  int result = ldap_get_dn_ber(handle, message, &begin, &dn);
  const std::unique_ptr<BerElement, FreeBer> place(begin);
  if (result != LDAP_SUCCESS) return result;
  if (!allowance.spend(LdapAllowance::kPerEntry + dn.bv_len)) return LDAP_RESULTS_TOO_LARGE;
  entry.dn = textOf(dn);
  for (bool more = true; more && result == LDAP_SUCCESS;)
    result = readAttribute(handle, message, place.get(), entry, allowance, more);
  return result;
}

int readPageCookie(ldap* handle, ldapcontrol** controls, std::string& cookie) {
  LDAPControl* const paged = ldap_control_find(LDAP_CONTROL_PAGEDRESULTS, controls, nullptr);
  if (paged == nullptr) return LDAP_SUCCESS;
  berval next{};
  ber_int_t estimate = 0;
  const int result = ldap_parse_pageresponse_control(handle, paged, &estimate, &next);
  if (result != LDAP_SUCCESS) return result;
  cookie = textOf(next);
  ber_memfree(next.bv_val);
  return result;
}

}  // namespace paddock
