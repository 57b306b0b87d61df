#include "platform/linux/ldap/ldap_records.h"

#include <ldap.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>

#include "base/guid.h"
#include "platform/directory.h"
#include "platform/linux/ldap/ldap_text.h"
#include "platform/linux/process/case_fold.h"
#include "platform/linux/process/linux_machine_information.h"

namespace paddock {

namespace {

constexpr int kAttempts = 10;
constexpr const char* kIsRecord = "(objectClass=paddockRecord)";

std::string newRevision() { return guidText(LinuxUuidSource().newUuid()); }

// Nanoseconds since the epoch, another for each record of this process and later than the last.
std::string newCreationTime() {
  static std::atomic<std::int64_t> last{0};
  std::int64_t now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
  std::int64_t before = last.load();
  do {
    now = std::max(now, before + 1);
  } while (!last.compare_exchange_weak(before, now));
  return std::to_string(now);
}

bool contains(const std::vector<std::string>& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

bool matchesAny(const std::vector<std::string>& values, const std::string& folded) {
  return std::any_of(values.begin(), values.end(),
                     [&](const std::string& value) { return caseFold(value) == folded; });
}

bool hasName(const LdapRecordState& record, const std::string& name) {
  return matchesAny(record.names(), caseFold(name));
}

std::string ofTypesFilter(const std::vector<std::string>& types) {
  std::vector<std::string> filters;
  for (const std::string& type : types) {
    std::string filter = equals("paddockType", type);
    if (!contains(filters, filter)) filters.push_back(std::move(filter));
  }
  return anyOf(filters);
}

[[noreturn]] void refuseName(const std::string& name, const std::string& type) {
  throw DirectoryError(EEXIST, "another record of " + type + " has the name \"" + name + "\"");
}

std::vector<LdapChange> asAdditions(const LdapAttributes& entry) {
  std::vector<LdapChange> list;
  for (const auto& [attribute, values] : entry)
    if (!values.empty()) list.push_back({LdapChange::Kind::add, attribute, values});
  return list;
}

// What a server says that has never heard of our classes.
bool isUnknownSchema(int result) {
  return result == LDAP_UNDEFINED_TYPE || result == LDAP_INVALID_SYNTAX ||
         result == LDAP_OBJECT_CLASS_VIOLATION || result == LDAP_INVALID_DN_SYNTAX;
}

// What a server says to a change of a record that is no longer as it was read.
bool isOvertaken(int result) {
  return result == LDAP_NO_SUCH_ATTRIBUTE || result == LDAP_TYPE_OR_VALUE_EXISTS ||
         result == LDAP_CONSTRAINT_VIOLATION || result == LDAP_NO_SUCH_OBJECT;
}

}  // namespace

bool hasValue(const LdapRecordState& record, const std::string& attribute,
              const std::string& value) {
  const std::string folded = caseFold(value);
  if (attribute == schema::kRecordType) return caseFold(record.type) == folded;
  return std::any_of(record.attributes.begin(), record.attributes.end(), [&](const auto& one) {
    return one.name == attribute && matchesAny(one.values, folded);
  });
}

// --- Reading

std::vector<LdapRecordState> LdapRecords::search(const std::string& filter) {
  const LdapQuery query{.base = access_.options().baseOfRecords(),
                        .scope = LdapScope::subtree,
                        .filter = filter,
                        .attributes = recordEntryAttributes()};
  const auto entries =
      access_.run([&](LdapConnection& connection, bool) { return connection.search(query); });
  std::vector<LdapRecordState> records;
  records.reserve(entries.size());
  for (const LdapEntry& entry : entries) records.push_back(recordOf(entry));
  std::sort(records.begin(), records.end(),
            [](const LdapRecordState& left, const LdapRecordState& right) {
              return left.order < right.order;
            });
  return records;
}

std::vector<LdapRecordState> LdapRecords::ofTypes(const std::vector<std::string>& types) {
  if (types.empty()) return {};
  auto records = search(allOf({ofTypesFilter(types), kIsRecord}));
  std::erase_if(records,
                [&](const LdapRecordState& record) { return !contains(types, record.type); });
  return records;
}

std::vector<LdapRecordState> LdapRecords::withValue(const std::vector<std::string>& types,
                                                    const std::string& attribute,
                                                    const std::string& value) {
  if (attribute == schema::kRecordType) {
    std::vector<std::string> asked = types;
    std::erase_if(asked,
                  [&](const std::string& type) { return caseFold(type) != caseFold(value); });
    return ofTypes(asked);
  }
  if (types.empty()) return {};
  auto records = search(allOf({recordFilter(attribute, value), ofTypesFilter(types), kIsRecord}));
  // Servers squeeze blanks and normalise; matching here is what it is on every node.
  std::erase_if(records, [&](const LdapRecordState& record) {
    return !contains(types, record.type) || !hasValue(record, attribute, value);
  });
  return records;
}

std::optional<LdapRecords::Loaded> LdapRecords::read(const LdapRecordState& known) {
  const auto is = [&](const LdapEntry& entry) { return entry.first("entryUUID") == known.uuid; };
  return access_.run([&](LdapConnection& connection, bool) -> std::optional<Loaded> {
    std::vector<LdapEntry> entries;
    try {
      entries = connection.search({.base = known.dn,
                                   .scope = LdapScope::base,
                                   .filter = kIsRecord,
                                   .attributes = recordEntryAttributes()});
    } catch (const LdapError& error) {
      if (error.result() != LDAP_NO_SUCH_OBJECT) throw;
    }
    if ((entries.empty() || !is(entries.front())) && !known.uuid.empty())
      entries = connection.search({.base = access_.options().baseOfRecords(),
                                   .scope = LdapScope::subtree,
                                   .filter = allOf({equals("entryUUID", known.uuid), kIsRecord}),
                                   .attributes = recordEntryAttributes()});
    if (entries.empty() || !is(entries.front())) return std::nullopt;
    return Loaded{recordOf(entries.front()), entryOf(entries.front())};
  });
}

LdapRecords::Loaded LdapRecords::loaded(const LdapRecordState& known) {
  auto found = read(known);
  if (!found) throw DirectoryError(ENOENT, "the record is gone from " + access_.options().path());
  return std::move(*found);
}

LdapRecordState LdapRecords::load(const LdapRecordState& known) { return loaded(known).record; }

std::optional<LdapRecordState> LdapRecords::recordAt(const std::string& dn) {
  return access_.run([&](LdapConnection& connection, bool) -> std::optional<LdapRecordState> {
    try {
      const auto entries = connection.search({.base = dn,
                                              .scope = LdapScope::base,
                                              .filter = kIsRecord,
                                              .attributes = recordEntryAttributes()});
      if (entries.empty()) return std::nullopt;
      return recordOf(entries.front());
    } catch (const LdapError& error) {
      if (error.result() != LDAP_NO_SUCH_OBJECT) throw;
      return std::nullopt;
    }
  });
}

// --- Creating

std::string LdapRecords::dnFor(const std::string& rdn) const {
  return rdn + "," + access_.options().baseOfRecords();
}

void LdapRecords::requireFree(const std::vector<std::string>& names, const std::string& type,
                              const std::string& ownUuid) {
  for (const std::string& name : names)
    for (const LdapRecordState& other : withValue({type}, schema::kRecordName, name))
      if (other.uuid != ownUuid) refuseName(name, type);
}

void LdapRecords::addEntry(const std::string& dn, const LdapRecordState& record) {
  LdapAttributes entry = entryOf(record);
  entry["paddockKey"] = {record.key};
  entry["paddockCreated"] = {newCreationTime()};
  const auto list = asAdditions(entry);
  access_.run([&](LdapConnection& connection, bool) { connection.add(dn, list); });
}

LdapRecordState LdapRecords::create(const std::string& name, const std::string& type) {
  requireFree({name}, type, "");
  LdapRecordState record;
  record.type = type;
  record.revision = newRevision();
  record.key = recordKey(type, name);
  record.dn = dnFor(recordRdn(type, name));
  record.attributes.push_back({0, schema::kRecordName, {name}});
  for (bool again = false;; again = true) {
    try {
      addEntry(record.dn, record);
      break;
    } catch (const LdapError& error) {
      if (isUnknownSchema(error.result()))
        throw LdapError(error.result(), ENOTSUP,
                        access_.options().path() + ": the server does not have our schema",
                        error.what());
      if (error.result() != LDAP_ALREADY_EXISTS) throw;
      const auto present = recordAt(record.dn);
      // The response to an earlier attempt was lost.
      if (present && present->revision == record.revision) break;
      if (again || (present && !clear(record.dn, name))) refuseName(name, type);
    }
  }
  auto made = recordAt(record.dn);
  if (!made || made->revision != record.revision)
    throw DirectoryError(ENOENT, "the record is gone from " + access_.options().path());
  try {
    requireFree({name}, type, made->uuid);
  } catch (const DirectoryError&) {
    removeEntry(*made);
    throw;
  }
  return std::move(*made);
}

bool LdapRecords::clear(const std::string& dn, const std::string& name) {
  const auto present = recordAt(dn);
  if (!present) return true;
  if (hasName(*present, name)) return false;
  // Left by a session that ended between moving the entry and changing its name.
  move(*present, recordRdn(present->type, present->names().front()), present->names().front());
  return true;
}

// --- Changing

void LdapRecords::move(const LdapRecordState& record, const std::string& rdn,
                       const std::string& newName) {
  // The RDN given by another client may be one of its values.
  const bool isOwnKey = !record.key.empty() && record.dn.starts_with("paddockKey=");
  for (bool cleared = false;; cleared = true) {
    try {
      access_.run([&](LdapConnection& connection, bool again) {
        try {
          connection.rename(record.dn, rdn, isOwnKey);
        } catch (const LdapError& error) {
          // Done by the attempt whose answer was lost, perhaps.
          if (!again || error.result() != LDAP_NO_SUCH_OBJECT) throw;
        }
      });
      return;
    } catch (const LdapError& error) {
      if (error.result() != LDAP_ALREADY_EXISTS) throw;
      if (cleared || !clear(dnFor(rdn), newName)) refuseName(newName, record.type);
    }
  }
}

void LdapRecords::modify(const Loaded& from, const LdapRecordState& to) {
  std::vector<LdapChange> changes = differences(from.entry, entryOf(to));
  // The revision first: it says whether the record is still the one that was read.
  std::stable_partition(changes.begin(), changes.end(), [](const LdapChange& change) {
    return change.attribute == "paddockRevision";
  });
  access_.run([&](LdapConnection& connection, bool) { connection.modify(to.dn, changes); });
}

bool LdapRecords::tryChange(const Loaded& from, LdapRecordState& to) {
  const std::string& first = to.names().front();
  const bool moves = from.record.key != recordKey(to.type, first);
  std::vector<std::string> newNames;
  for (const std::string& name : to.names())
    if (!hasName(from.record, name)) newNames.push_back(name);
  requireFree(newNames, to.type, to.uuid);
  if (moves) {
    const std::string rdn = recordRdn(to.type, first);
    move(from.record, rdn, first);
    const auto moved = read(from.record);
    if (!moved) return false;
    to.dn = moved->record.dn;
    to.key = moved->record.key;
  }
  try {
    modify(from, to);
  } catch (const LdapError& error) {
    if (moves) undo(to, from);
    if (isOvertaken(error.result())) return false;
    throw;
  }
  try {
    requireFree(newNames, to.type, to.uuid);
  } catch (const DirectoryError&) {
    undo(to, from);
    throw;
  }
  return true;
}

// Best effort: the original error is the one to be reported.
void LdapRecords::undo(const LdapRecordState& made, const Loaded& before) {
  try {
    Loaded now = loaded(made);
    if (now.record.revision == made.revision) {
      LdapRecordState old = before.record;
      old.dn = now.record.dn;
      old.revision = newRevision();
      modify(now, old);
      now = loaded(made);
    }
    const std::string& first = now.record.names().front();
    if (now.record.key != recordKey(now.record.type, first))
      move(now.record, recordRdn(now.record.type, first), first);
  } catch (const DirectoryError&) {
    return;
  }
}

LdapRecordState LdapRecords::change(const LdapRecordState& known,
                                    const std::vector<AttributeChange>& changes) {
  const std::string revision = newRevision();
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const Loaded from = loaded(known);
    // The response to an earlier attempt was lost.
    if (from.record.revision == revision) return from.record;
    LdapRecordState to = from.record;
    applyChanges(to, changes);
    to.revision = revision;
    if (tryChange(from, to)) return to;
  }
  throw DirectoryError(EBUSY, access_.options().path() + ": the record is changed all the time");
}

// --- Removing

void LdapRecords::removeEntry(const LdapRecordState& record) {
  const std::string assertion =
      record.uuid.empty() ? std::string(kIsRecord) : equals("entryUUID", record.uuid);
  access_.run([&](LdapConnection& connection, bool again) {
    try {
      connection.remove(record.dn, assertion);
    } catch (const LdapError& error) {
      const bool isGone =
          error.result() == LDAP_NO_SUCH_OBJECT || error.result() == LDAP_ASSERTION_FAILED;
      if (!isGone) throw;
      if (!again)
        throw DirectoryError(ENOENT, "the record is gone from " + access_.options().path());
    }
  });
}

void LdapRecords::remove(const LdapRecordState& known) { removeEntry(load(known)); }

// --- Whether they can be asked for

void LdapRecords::requireBase() {
  const LdapQuery query{
      access_.options().baseOfRecords(), LdapScope::base, "(objectClass=*)", {"1.1"}};
  access_.run([&](LdapConnection& connection, bool) { connection.search(query); });
}

}  // namespace paddock
