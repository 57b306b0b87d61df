// Directory nodes "/LDAP/NAME": a directory server, over libldap. docs/ldap.md says how a server is
// set up, docs/formats/ldap_records.md the format of records and the status of each failure.
//
// Records of every type but users and groups are entries of the Paddock schema and may be changed
// as far as the server permits the authenticated account. Users and groups are those of the site,
// and read-only (EACCES).
//
// "dsAttrTypeStandard:ReadOnlyNode" is what the configuration says (`LdapOptions::writable`), or
// what the last change of a record that the server took or refused has shown; `kWriteBasis` says
// which of the two. The server is asked whether it has the place of the records, by reading alone:
// no change is ever tried to find it out.
//
// A node object, its records included, has at most one connection, made when it is first needed.
#pragma once

#include <memory>

#include "platform/directory.h"
#include "platform/linux/ldap/ldap_server.h"
#include "platform/search_node.h"

namespace paddock {

// An attribute of these nodes: "configured"; "accepted" or "refused" by the last change.
inline constexpr const char* kWriteBasis = "dsAttrTypeNative:write_basis";

// A user authenticates by the name of a user's record, or by the distinguished name of any entry
// that has a password; the observer has each test of a password made. Throws nothing: the server is
// first asked by an operation.
std::shared_ptr<DirectoryNode> makeLdapNode(std::shared_ptr<LdapServer> server,
                                            std::shared_ptr<NodeObserver> observer = nullptr);

}  // namespace paddock
