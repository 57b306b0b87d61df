// C++ wrappers for libldap.
#pragma once

#include <ldap.h>
#include <sys/time.h>

#include <chrono>
#include <memory>
#include <string>

namespace paddock {

struct FreeLdapMessage {
  void operator()(LDAPMessage* message) const { ldap_msgfree(message); }
};
using LdapMessage = std::unique_ptr<LDAPMessage, FreeLdapMessage>;

struct FreeLdapControl {
  void operator()(LDAPControl* control) const { ldap_control_free(control); }
};
using LdapControl = std::unique_ptr<LDAPControl, FreeLdapControl>;

struct FreeLdapControls {
  void operator()(LDAPControl** controls) const { ldap_controls_free(controls); }
};
using LdapControls = std::unique_ptr<LDAPControl*, FreeLdapControls>;

// Copies and frees the text, which may be null.
inline std::string takeLdapText(char* text) {
  const std::unique_ptr<char, decltype(&ldap_memfree)> owner(
      text, [](void* memory) { ldap_memfree(memory); });
  return text == nullptr ? std::string() : std::string(text);
}

inline timeval timevalOf(std::chrono::milliseconds time) {
  return {static_cast<time_t>(time.count() / 1000),
          static_cast<suseconds_t>(time.count() % 1000 * 1000)};
}

// Valid as long as the text; the library does not change it.
inline berval bervalOf(const std::string& text) {
  return {text.size(), const_cast<char*>(text.data())};
}

inline std::string textOf(const berval& value) {
  return value.bv_len == 0 ? std::string() : std::string(value.bv_val, value.bv_len);
}

}  // namespace paddock
