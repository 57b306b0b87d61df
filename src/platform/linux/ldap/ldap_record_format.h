// Records of the Paddock schema as entries of a directory server: docs/formats/ldap_records.md.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/directory_values.h"
#include "platform/linux/ldap/ldap_connection.h"

namespace paddock {

struct LdapRecordState {
  struct Attribute {
    unsigned position = 0;
    std::string name;
    std::vector<std::string> values;
  };

  std::string dn;
  std::string key;       // see recordKey; empty for an entry named by another client
  std::string uuid;      // the server's name of the entry for good; empty when it gives none
  std::string revision;  // empty for an entry created by another client
  std::string type;
  std::string order;                  // sorts records in the order of their creation
  std::vector<Attribute> attributes;  // by position; RecordName is the first, at position 0

  const std::vector<std::string>& names() const { return attributes.front().values; }
};

// The attributes to ask a server for.
const std::vector<std::string>& recordEntryAttributes();
// Sorts entries in the order of their creation; needs "createTimestamp" and "entryUUID".
std::string creationOrder(const LdapEntry& entry);

// Throws DirectoryError EIO, naming the entry, when it is no record that can be understood.
LdapRecordState recordOf(const LdapEntry& entry);
// RecordName, RecordType, and the others by their position.
std::vector<AttributeChange> attributesOf(const LdapRecordState& record);

// Replaces or removes the attributes. Throws DirectoryError EINVAL for another type.
void applyChanges(LdapRecordState& record, const std::vector<AttributeChange>& changes);

// What an entry holds: attribute -> values.
using LdapAttributes = std::map<std::string, std::vector<std::string>>;
// All that is made from the record: its class, type, revision and values, not its key.
LdapAttributes entryOf(const LdapRecordState& record);
// What makes `before` into `after`, for one modify.
std::vector<LdapChange> differences(const LdapAttributes& before, const LdapAttributes& after);
// The same part of an entry as it is on the server.
LdapAttributes entryOf(const LdapEntry& entry);

// The filter that finds the records, of any type, that may have the value; the attribute may not be
// RecordType. `value` is text.
std::string recordFilter(const std::string& attribute, const std::string& value);

// The value of "paddockKey": one per type and case-folded name.
std::string recordKey(const std::string& type, const std::string& name);
// The first component of the entry's name.
std::string recordRdn(const std::string& type, const std::string& name);

}  // namespace paddock
