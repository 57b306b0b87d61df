// The plug-in's operations on a directory service.
//
// Requests. "node": a node's path, "/Local" when absent. "type", "name": of a record. "attributes":
// attribute name -> string or array of strings. "adminUserName" and "adminPassword", when the
// name is there, authenticate on the node before anything else is done.
//
// Replies. "status" is always there: 0 or an errno, which then has its text under "error". EINVAL:
// a type, name or password that is missing or empty, attributes that are none; EACCES: the
// authentication failed, or the user or the node takes no change; ENOENT: there is no such node;
// other numbers are the node's own. A request with a status other than 0 changed nothing.
#pragma once

#include "base/value.h"
#include "platform/directory.h"

namespace paddock::records {

// "records": every record of the type, as dictionaries attribute name -> array of strings.
Dictionary list(DirectoryService& directory, const Dictionary& request);

// "record": the record of the name; absent when there is none.
Dictionary get(DirectoryService& directory, const Dictionary& request);

// Creates the record when there is none and replaces the attributes that are given, all or none.
// "removeAttributes", an array of names, are removed from a record that was there, one by one and
// after that; a missing one is no error. EINVAL, before anything is changed, for the names.
Dictionary put(DirectoryService& directory, const Dictionary& request);

// Status 0 also when there is no such record.
Dictionary remove(DirectoryService& directory, const Dictionary& request);

// Sets the "password" of the user "name" of "/Local". ENOENT: there is no such user; EACCES: the
// node keeps no passwords here.
Dictionary setPassword(DirectoryService& directory, const Dictionary& request);

}  // namespace paddock::records
