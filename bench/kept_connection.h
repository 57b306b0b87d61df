// A connection to a directory server by libldap alone.
#pragma once

#include <ldap.h>

#include <stdexcept>
#include <string>
#include <vector>

class KeptConnection {
 public:
  // Asks below `base` for these attributes.
  KeptConnection(const std::string& uri, std::string base,
                 const std::vector<std::string>& attributes)
      : base_(std::move(base)) {
    const int version = LDAP_VERSION3;
    if (ldap_initialize(&ldap_, uri.c_str()) != LDAP_SUCCESS ||
        ldap_set_option(ldap_, LDAP_OPT_PROTOCOL_VERSION, &version) != LDAP_OPT_SUCCESS)
      throw std::runtime_error("no connection to " + uri);
    for (const std::string& name : attributes)
      attributes_.push_back(const_cast<char*>(name.c_str()));
    attributes_.push_back(nullptr);
  }
  KeptConnection(const KeptConnection&) = delete;
  KeptConnection& operator=(const KeptConnection&) = delete;
  ~KeptConnection() { ldap_unbind_ext_s(ldap_, nullptr, nullptr); }

  // Finds the one entry that matches.
  void lookUp(const std::string& filter) {
    LDAPMessage* answer = nullptr;
    const int result =
        ldap_search_ext_s(ldap_, base_.c_str(), LDAP_SCOPE_SUBTREE, filter.c_str(),
                          attributes_.data(), 0, nullptr, nullptr, nullptr, LDAP_NO_LIMIT, &answer);
    const int found = result == LDAP_SUCCESS ? ldap_count_entries(ldap_, answer) : 0;
    ldap_msgfree(answer);
    if (found != 1) throw std::runtime_error("libldap does not find " + filter);
  }

 private:
  LDAP* ldap_ = nullptr;
  const std::string base_;
  std::vector<char*> attributes_;
};
