// What a fault sweep knows of a folder's privileges: a folder with an ACL, a request that replaces
// all of them, and the statuses of the calls that may fail.
#pragma once

#include <map>
#include <set>
#include <string>

#include "fault_world.h"

namespace paddock {

inline constexpr const char* kFolderGuid = "DEADBEEF-0000-0000-0000-000000000001";

// A folder of root's whose ACL has an entry of a group with a record of its GUID, one of a user who
// is known by the id alone, and one of an unknown principal.
inline void prepareFolder(ModuleDoubles& doubles, const std::string& path) {
  doubles.accounts.addUser("anna", 1000);
  doubles.accounts.addGroup("staff", 20);
  doubles.directory.addRecord("/Local", schema::kUsers, "anna", {{schema::kUniqueID, "1000"}});
  doubles.directory.addRecord("/Local", schema::kGroups, "staff",
                              {{schema::kGeneratedUID, kFolderGuid}});
  doubles.tree.setFolder(path);
  StoredAcl stored;
  for (const Guid& guid : {*parseGuid(kFolderGuid), computedGuid({PrincipalType::user, 1000}),
                           *parseGuid("DEADBEEF-0000-0000-0000-000000000002")}) {
    acl::Entry entry;
    entry.tag = acl::kExtendedDeny;
    entry.qualifier = guid;
    entry.permset.permissions = acl::kDelete;
    entry.flagset.flags = acl::kInherited;
    stored.entries.push_back(entry);
  }
  doubles.tree.setAcl(path, stored);
}

// Other privileges than those, in every part: an entry by GUID, one by uid and one by gid.
inline Dictionary newPrivileges() {
  const Dictionary common{{"allowPermission", "YES"}, {"bitmap", 2 | 16}, {"flags", 32}};
  Array entries(3, common);
  entries[0].dictionary()->set("guid", kFolderGuid);
  entries[1].dictionary()->set("isUser", 0);
  entries[1].dictionary()->set("uniqueID", 1000);
  entries[2].dictionary()->set("isUser", 1);
  entries[2].dictionary()->set("groupID", 20);
  return {{"owner", "anna"}, {"group", "staff"}, {"privs", "750"}, {"acl", entries}};
}

// The statuses with which writing privileges reports that a call failed. Calls that are not here
// change no status: they end the writing of an ACL quietly, or belong to reading or releasing.
inline const std::map<std::string, std::set<Status>>& privilegeStatuses() {
  static const std::map<std::string, std::set<Status>> statuses = {
      {"accounts.getpwnam", {USER_NOT_FOUND_ERR}},
      {"accounts.getgrnam", {GROUP_NOT_FOUND_ERR}},
      {"fileAttributes.apply", {CANNOT_CHANGE_PRIVS_ERR}},
      {"acl.acl_init", {ACL_INIT_ERR}},
      {"acl.acl_create_entry", {CANNOT_CREATE_ACL_ENTRY_ERR}},
      {"acl.acl_set_tag_type", {CANNOT_SET_ACL_TAG_TYPE_ERR}},
      {"acl.acl_set_qualifier", {CANNOT_SET_ACL_QUALIFIER_ERR, -1}},
      {"membership.uidToGuid", {CANNOT_SET_ACL_QUALIFIER_ERR}},
      {"membership.gidToGuid", {CANNOT_SET_ACL_QUALIFIER_ERR}},
      {"acl.acl_set_permset", {CANNOT_SET_ACE_PERMSET_ERR}},
      {"acl.acl_set_flagset_np", {CANNOT_SET_ACE_FLAGSET_ERR}},
      {"acl.acl_valid", {ACL_VALIDATION_ERR}},
      {"acl.acl_set_file", {CANNOT_SET_ACL_FILE_ERR}},
  };
  return statuses;
}

// Deliberate: when one of these fails, the ACL stays as it was and the write is a success.
inline const std::set<std::string>& quietEnds() {
  static const std::set<std::string> calls = {"acl.acl_get_permset",    "acl.acl_clear_perms",
                                              "acl.acl_add_perm",       "acl.acl_get_flagset_np",
                                              "acl.acl_clear_flags_np", "acl.acl_add_flag_np"};
  return calls;
}

// The calls whose persistent failure makes the lookup of a name raise.
inline bool mayRaiseWhileReadingAnAcl(const std::string& firstFailed) {
  return firstFailed == "directory.openLocal" || firstFailed == "session.searchNode" ||
         firstFailed == "node.findRecordsOfTypes" || firstFailed == "acl.acl_free.qualifier";
}

inline bool writesPrivileges(const Scenario& scenario) {
  const Dictionary* configuration = scenario.request.dictionary("configuration");
  return configuration != nullptr && configuration->contains("fileAccessPrivs");
}

}  // namespace paddock
