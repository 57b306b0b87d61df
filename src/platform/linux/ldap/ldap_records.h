// The records of the Paddock schema on a directory server: every type but users and groups.
//
// Each change of a record is one modify. The name of an entry is made from the record's first name,
// so that the server itself lets only one of two sessions have it; giving a record another first
// name moves its entry first. Further names are searched before and after they are set, and rolled
// back when another record has one. Errors are DirectoryError; an operation that throws has changed
// nothing.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/ldap/ldap_access.h"
#include "platform/linux/ldap/ldap_record_format.h"

namespace paddock {

// Whether the record has the value among those of the attribute; RecordType is one.
bool hasValue(const LdapRecordState& record, const std::string& attribute,
              const std::string& value);

class LdapRecords {
 public:
  explicit LdapRecords(LdapAccess& access) : access_(access) {}

  // In the order of their creation. Texts may be anything that is text.
  std::vector<LdapRecordState> ofTypes(const std::vector<std::string>& types);
  std::vector<LdapRecordState> withValue(const std::vector<std::string>& types,
                                         const std::string& attribute, const std::string& value);

  // EEXIST when the type has the name; ENOTSUP when the server does not have the schema.
  LdapRecordState create(const std::string& name, const std::string& type);

  // The record as it is now; `known` says where it was. ENOENT when it is gone.
  LdapRecordState load(const LdapRecordState& known);
  // Makes the changes and returns the record as it is then.
  LdapRecordState change(const LdapRecordState& known, const std::vector<AttributeChange>& changes);
  void remove(const LdapRecordState& known);

  // Throws when the place of the records cannot be read. Only reads.
  void requireBase();

 private:
  struct Loaded {
    LdapRecordState record;
    LdapAttributes entry;
  };

  std::vector<LdapRecordState> search(const std::string& filter);
  std::optional<Loaded> read(const LdapRecordState& known);
  Loaded loaded(const LdapRecordState& known);
  std::optional<LdapRecordState> recordAt(const std::string& dn);
  std::string dnFor(const std::string& rdn) const;

  // EEXIST when another record of the type has one of the names.
  void requireFree(const std::vector<std::string>& names, const std::string& type,
                   const std::string& ownUuid);
  void addEntry(const std::string& dn, const LdapRecordState& record);
  // Moves a record that stands at the place of a name that it does not have; false when it has.
  bool clear(const std::string& dn, const std::string& name);
  void move(const LdapRecordState& record, const std::string& rdn, const std::string& newName);
  void modify(const Loaded& from, const LdapRecordState& to);
  bool tryChange(const Loaded& from, LdapRecordState& to);
  void undo(const LdapRecordState& made, const Loaded& before);
  void removeEntry(const LdapRecordState& record);

  LdapAccess& access_;
};

}  // namespace paddock
