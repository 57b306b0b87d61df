// Parsing of search result messages.
#pragma once

#include <string>

#include "platform/linux/ldap/ldap_allowance.h"
#include "platform/linux/ldap/ldap_connection.h"

namespace paddock {

// Reads the entry that the message is, as far as the allowance goes. Returns a result of the
// library: LDAP_RESULTS_TOO_LARGE when the allowance is spent.
int readLdapEntry(ldap* handle, ldapmsg* message, LdapEntry& entry, LdapAllowance& allowance);

// What the next page of a search is asked for with; empty when there is none. Returns a result of
// the library.
int readPageCookie(ldap* handle, ldapcontrol** controls, std::string& cookie);

}  // namespace paddock
