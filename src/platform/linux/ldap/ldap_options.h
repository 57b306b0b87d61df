// Connection settings and schema names of one directory server.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "base/value.h"

namespace paddock {

enum class LdapTls { none, startTls, ldaps };

// Object classes and attributes of the users and groups of the site. An attribute with an empty
// name is not requested.
struct LdapAccountNames {
  std::vector<std::string> userClasses{"posixAccount", "inetOrgPerson"};
  std::string userName = "uid";
  std::string userId = "uidNumber";
  std::string userGroupId = "gidNumber";
  std::string userRealName = "cn";
  std::string userHome = "homeDirectory";
  std::string userShell = "loginShell";
  std::vector<std::string> groupClasses{"posixGroup", "groupOfNames"};
  std::string groupName = "cn";
  std::string groupId = "gidNumber";
  // The members of a group: their names, or their entries.
  std::string memberNames = "memberUid";
  std::string memberEntries = "member";
  // Of an entry: the groups that it is in, where the server keeps that ("memberOf").
  std::string memberOf;
  // A GUID as text.
  std::string guid = "entryUUID";
};

struct LdapOptions {
  // The node is "/LDAP/NAME".
  std::string name;
  // ldap://HOST[:PORT], ldaps://HOST[:PORT] or ldapi://PATH with escapes; several are separated by
  // blanks and tried in their order.
  std::string uri;
  // Below it are the users and groups.
  std::string base;
  // The records of the Paddock schema are below it, and new ones are created directly below it;
  // empty: base.
  std::string recordsBase;
  // Whether the connection is encrypted before anything else is said; the server's certificate is
  // always checked, name and all, also behind ldaps:// whatever this says.
  LdapTls tls = LdapTls::none;
  // Certificates of the authorities that a server's may be signed by (PEM).
  std::string caFile = "/etc/ssl/certs/ca-certificates.crt";
  // For each step: to connect (to each address), to start TLS, to bind, to get one result.
  std::chrono::milliseconds timeout{10'000};
  // For an operation of the node as a whole, however many steps it takes.
  std::chrono::milliseconds deadline{30'000};
  // What an operation may receive as a whole (LdapAllowance).
  std::size_t answerBytes = 256U << 20U;
  // How long a server that did not answer is not queried again.
  std::chrono::milliseconds silence{30'000};
  // How long it is considered read-only after it refused a change.
  std::chrono::milliseconds refusal{300'000};
  // Cache lifetime of users and groups by GUID or id; zero: no caching.
  std::chrono::milliseconds keeping{2'000};
  // The bind DN before a user authenticates; empty: anonymous.
  std::string bindDn;
  // The file that holds the account's password, which is read for each new connection; a line feed
  // at its end does not count.
  std::string passwordFile;
  // Whether records can be changed there, as the configuration says; when it does not say: whether
  // an account is configured.
  std::optional<bool> writable;
  LdapAccountNames accounts;

  std::string path() const { return "/LDAP/" + name; }
  bool isCalledWritable() const { return writable.value_or(!bindDn.empty()); }
  const std::string& baseOfRecords() const { return recordsBase.empty() ? base : recordsBase; }
};

// The directory servers of a configuration.

// See configured_options.h. Files that the configuration names are below `root`; the authorities'
// certificates that are taken when it names none are the system's.
std::vector<LdapOptions> configuredLdap(const Dictionary& configuration, const std::string& root);

}  // namespace paddock
