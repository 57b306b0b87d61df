#include "platform/linux/database/local_store.h"

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <utility>

#include "platform/directory.h"
#include "platform/linux/database/local_schema.h"
#include "platform/linux/process/case_fold.h"

namespace paddock {

namespace {

using Kind = SqliteTransaction::Kind;

// Rows of `LocalStore::collect`; CROSS JOIN keeps SQLite to the order of the tables, which is
// the order of the answers.
constexpr const char* kRowsOfType =
    "SELECT r.id, r.type, v.attribute, v.value FROM records r CROSS JOIN vals v ON v.record = r.id "
    "WHERE r.type = ?1 ORDER BY r.id, v.position, v.ordinal";
constexpr const char* kRowsOfName =
    "SELECT r.id, r.type, v.attribute, v.value FROM names n CROSS JOIN records r ON r.id = "
    "n.record "
    "CROSS JOIN vals v ON v.record = r.id WHERE n.type = ?1 AND n.folded = ?2 "
    "ORDER BY r.id, v.position, v.ordinal";
constexpr const char* kRowsOfValue =
    "SELECT r.id, r.type, v.attribute, v.value FROM matches m CROSS JOIN records r ON r.id = "
    "m.record "
    "CROSS JOIN vals v ON v.record = r.id WHERE m.attribute = ?1 AND m.folded = ?2 "
    "ORDER BY m.record, v.position, v.ordinal";

bool contains(const std::vector<std::string>& texts, std::string_view text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

// Answers that came type by type, in the order in which the records were created.
Array sorted(Array answers, const std::vector<RecordNumber>& order) {
  if (std::is_sorted(order.begin(), order.end())) return answers;
  std::vector<std::size_t> places(order.size());
  std::iota(places.begin(), places.end(), std::size_t{0});
  std::sort(places.begin(), places.end(),
            [&](std::size_t left, std::size_t right) { return order[left] < order[right]; });
  Array result;
  result.reserve(answers.size());
  for (const std::size_t place : places) result.push_back(std::move(answers[place]));
  return result;
}

std::vector<std::string> withoutRepeats(const std::vector<std::string>& texts) {
  std::vector<std::string> result;
  for (const std::string& text : texts)
    if (!contains(result, text)) result.push_back(text);
  return result;
}

}  // namespace

const LocalStore::Stored* LocalStore::Record::find(std::int64_t number) const {
  for (const Stored& stored : attributes)
    if (stored.number == number) return &stored;
  return nullptr;
}

bool LocalStore::Wanted::has(std::int64_t number) const {
  return all || std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

LocalStore::LocalStore(std::unique_ptr<SqliteConnection> connection)
    : connection_(std::move(connection)) {}

// --- Reading

std::string LocalStore::identity() {
  SqliteStatement query = connection_->statement("SELECT value FROM meta WHERE key = 'identity'");
  return query.step() ? std::string(query.text(0)) : std::string();
}

std::optional<RecordNumber> LocalStore::find(const std::string& name, const std::string& type) {
  const std::string folded = caseFold(name);
  SqliteStatement query =
      connection_->statement("SELECT record FROM names WHERE type = ?1 AND folded = ?2");
  query.bind(1, type).bind(2, folded);
  if (!query.step()) return std::nullopt;
  return query.integer(0);
}

Array LocalStore::recordsWithValue(const std::vector<std::string>& types,
                                   const std::string& attribute, const std::string& value) {
  const std::string folded = caseFold(value);
  const std::vector<std::string> asked = withoutRepeats(types);
  const Wanted everything{.all = true, .type = true, .numbers = {}};
  const SqliteTransaction transaction(*connection_, Kind::read);
  Array answers;
  std::vector<RecordNumber> order;
  if (attribute == schema::kRecordName || attribute == schema::kRecordType) {
    const bool byName = attribute == schema::kRecordName;
    for (const std::string& type : asked) {
      if (!byName && caseFold(type) != folded) continue;
      SqliteStatement rows = connection_->statement(byName ? kRowsOfName : kRowsOfType);
      rows.bind(1, type);
      if (byName) rows.bind(2, folded);
      collect(rows, everything, nullptr, answers, order);
    }
    return sorted(std::move(answers), order);
  }
  const auto number = attributeNumber(attribute);
  if (!number) return answers;
  SqliteStatement rows = connection_->statement(kRowsOfValue);
  rows.bind(1, *number).bind(2, folded);
  collect(rows, everything, &asked, answers, order);
  return answers;
}

Array LocalStore::recordsWithName(const std::string& name,
                                  const std::vector<std::string>& attributes,
                                  const std::string& type) {
  const std::string folded = caseFold(name);
  const SqliteTransaction transaction(*connection_, Kind::read);
  const Wanted asked = wanted(attributes);
  const bool all = name == kRecordsAll;
  SqliteStatement rows = connection_->statement(all ? kRowsOfType : kRowsOfName);
  rows.bind(1, type);
  if (!all) rows.bind(2, folded);
  Array answers;
  std::vector<RecordNumber> order;
  collect(rows, asked, nullptr, answers, order);
  return answers;
}

void LocalStore::collect(SqliteStatement& rows, const Wanted& wanted,
                         const std::vector<std::string>* types, Array& answers,
                         std::vector<RecordNumber>& order) {
  std::vector<Dictionary::Entry> entries;
  const auto finish = [&] {
    // The next record is likely to have as many attributes.
    const std::size_t count = entries.size();
    answers.emplace_back(*Dictionary::fromEntries(std::exchange(entries, {})));
    entries.reserve(count);
  };
  RecordNumber current = 0;
  std::int64_t attribute = 0;
  bool taken = false;
  while (rows.step()) {
    const RecordNumber record = rows.integer(0);
    if (record != current) {
      if (taken) finish();
      current = record;
      attribute = 0;
      const std::string_view type = rows.text(1);
      taken = types == nullptr || contains(*types, type);
      if (taken) order.push_back(record);
      if (taken && wanted.type) entries.push_back({schema::kRecordType, Array{Value(type)}});
    }
    const std::int64_t number = rows.integer(2);
    if (!taken || !wanted.has(number)) continue;
    if (number != attribute) entries.push_back({attributeName(number), Array{}});
    attribute = number;
    entries.back().value.array()->emplace_back(rows.text(3));
  }
  if (taken) finish();
}

LocalStore::Wanted LocalStore::wanted(const std::vector<std::string>& attributes) {
  Wanted result;
  result.all = contains(attributes, kAttributesAll);
  result.type = result.all || contains(attributes, schema::kRecordType);
  for (const std::string& attribute : attributes)
    if (const auto number = attributeNumber(attribute)) result.numbers.push_back(*number);
  return result;
}

std::string LocalStore::typeOf(RecordNumber record) {
  SqliteStatement query = connection_->statement("SELECT type FROM records WHERE id = ?1");
  query.bind(1, record);
  if (!query.step()) throw DirectoryError(ENOENT, "the record is gone from the local directory");
  return std::string(query.text(0));
}

LocalStore::Record LocalStore::load(RecordNumber record) {
  Record result{typeOf(record), {}};
  SqliteStatement rows = connection_->statement(
      "SELECT position, attribute, value FROM vals WHERE record = ?1 ORDER BY position, ordinal");
  rows.bind(1, record);
  while (rows.step()) {
    const std::int64_t position = rows.integer(0);
    if (result.attributes.empty() || result.attributes.back().position != position)
      result.attributes.push_back({position, rows.integer(1), {}});
    result.attributes.back().values.emplace_back(rows.text(2));
  }
  if (result.attributes.empty() || result.attributes.front().number != kRecordNameNumber)
    throw DirectoryError(EIO,
                         "directory database " + connection_->path() + ": a record without a name");
  return result;
}

std::vector<AttributeChange> LocalStore::read(RecordNumber record) {
  const SqliteTransaction transaction(*connection_, Kind::read);
  Record loaded = load(record);
  std::vector<AttributeChange> all;
  all.reserve(loaded.attributes.size() + 1);
  for (Stored& stored : loaded.attributes) {
    all.push_back({attributeName(stored.number), std::move(stored.values)});
    if (all.size() == 1) all.push_back({schema::kRecordType, {loaded.type}});
  }
  return all;
}

// --- Changing

RecordNumber LocalStore::create(const std::string& name, const std::string& type) {
  SqliteTransaction transaction(*connection_, Kind::write);
  connection_->statement("INSERT INTO records(type) VALUES(?1)").bind(1, type).run();
  const RecordNumber number = connection_->lastInsertedRow();
  insertName(number, type, name);
  Record record{type, {}};
  store(number, record, {schema::kRecordName, {name}}, 0);
  transaction.commit();
  return number;
}

void LocalStore::remove(RecordNumber number) {
  SqliteTransaction transaction(*connection_, Kind::write);
  Record record = load(number);
  eraseNames(number, record);
  while (!record.attributes.empty()) erase(number, record, record.attributes.back().number);
  connection_->statement("DELETE FROM records WHERE id = ?1").bind(1, number).run();
  transaction.commit();
  noteChange(record.type);
}

void LocalStore::change(RecordNumber number, const std::vector<AttributeChange>& changes) {
  {
    const SqliteTransaction reading(*connection_, Kind::read);
    if (isMade(load(number), changes)) return;
  }
  SqliteTransaction transaction(*connection_, Kind::write);
  Record record = load(number);
  try {
    for (const AttributeChange& one : changes)
      if (!isMade(record, one)) make(number, record, one);
    transaction.commit();
    noteChange(record.type);
  } catch (...) {
    // A name that was numbered in this transaction is not in the table.
    attributeNames_.clear();
    attributeNumbers_.clear();
    throw;
  }
}

bool LocalStore::isMade(const Record& record, const std::vector<AttributeChange>& changes) {
  return std::all_of(changes.begin(), changes.end(),
                     [&](const AttributeChange& one) { return isMade(record, one); });
}

bool LocalStore::isMade(const Record& record, const AttributeChange& change) {
  if (change.attribute == schema::kRecordType)
    return change.values.empty() || change.values == std::vector<std::string>{record.type};
  const auto number = attributeNumber(change.attribute);
  const Stored* stored = number ? record.find(*number) : nullptr;
  if (change.values.empty() && change.attribute == schema::kRecordName)
    return stored == nullptr || stored->values.size() == 1;
  return stored == nullptr ? change.values.empty() : stored->values == change.values;
}

void LocalStore::make(RecordNumber number, Record& record, const AttributeChange& change) {
  if (change.attribute == schema::kRecordType)
    throw DirectoryError(EINVAL, "a record's type cannot be changed");
  const std::int64_t attribute = attributeNumberOrNew(change.attribute);
  const Stored* old = record.find(attribute);
  std::int64_t position = record.attributes.back().position + 1;
  if (old != nullptr) position = old->position;
  AttributeChange made = change;
  if (attribute == kRecordNameNumber) {
    if (made.values.empty()) made.values = {old->values.front()};
    rename(number, record, made.values);
  }
  if (old != nullptr) erase(number, record, attribute);
  if (!made.values.empty()) store(number, record, made, position);
}

void LocalStore::rename(RecordNumber number, const Record& record,
                        const std::vector<std::string>& names) {
  eraseNames(number, record);
  for (const std::string& name : names) insertName(number, record.type, name);
}

void LocalStore::eraseNames(RecordNumber number, const Record& record) {
  SqliteStatement name =
      connection_->statement("DELETE FROM names WHERE type = ?1 AND folded = ?2 AND record = ?3");
  for (const std::string& text : record.attributes.front().values) {
    const std::string folded = caseFold(text);
    name.bind(1, record.type).bind(2, folded).bind(3, number).run();
  }
}

void LocalStore::insertName(RecordNumber number, const std::string& type, const std::string& name) {
  const auto owner = find(name, type);
  if (owner == number) return;  // two of its names may differ in case only
  if (owner)
    throw DirectoryError(EEXIST, "another record of " + type + " has the name \"" + name + "\"");
  const std::string folded = caseFold(name);
  connection_->statement("INSERT INTO names(type, folded, record) VALUES(?1, ?2, ?3)")
      .bind(1, type)
      .bind(2, folded)
      .bind(3, number)
      .run();
}

void LocalStore::noteChange(const std::string& type) {
  if (type == schema::kUsers || type == schema::kGroups) accountsChanged_ = true;
}

void LocalStore::erase(RecordNumber number, Record& record, std::int64_t attribute) {
  const auto stored = std::find_if(record.attributes.begin(), record.attributes.end(),
                                   [&](const Stored& one) { return one.number == attribute; });
  connection_->statement("DELETE FROM vals WHERE record = ?1 AND position = ?2")
      .bind(1, number)
      .bind(2, stored->position)
      .run();
  if (attribute != kRecordNameNumber) {
    SqliteStatement match = connection_->statement(
        "DELETE FROM matches WHERE attribute = ?1 AND folded = ?2 AND record = ?3");
    for (const std::string& value : stored->values) {
      const std::string folded = caseFold(value);
      match.bind(1, attribute).bind(2, folded).bind(3, number).run();
    }
  }
  record.attributes.erase(stored);
}

void LocalStore::store(RecordNumber number, Record& record, const AttributeChange& change,
                       std::int64_t position) {
  Stored stored{position, attributeNumberOrNew(change.attribute), change.values};
  SqliteStatement value = connection_->statement(
      "INSERT INTO vals(record, position, ordinal, attribute, value) VALUES(?1, ?2, ?3, ?4, ?5)");
  SqliteStatement match = connection_->statement(
      "INSERT OR IGNORE INTO matches(attribute, folded, record) VALUES(?1, ?2, ?3)");
  std::int64_t ordinal = 0;
  for (const std::string& text : stored.values) {
    value.bind(1, number).bind(2, position).bind(3, ordinal++).bind(4, stored.number);
    value.bind(5, text).run();
    if (stored.number == kRecordNameNumber) continue;
    const std::string folded = caseFold(text);
    match.bind(1, stored.number).bind(2, folded).bind(3, number).run();
  }
  const auto place = std::find_if(record.attributes.begin(), record.attributes.end(),
                                  [&](const Stored& other) { return other.position > position; });
  record.attributes.insert(place, std::move(stored));
}

// --- Passwords

std::optional<std::string> LocalStore::passwordHash(RecordNumber record) {
  SqliteStatement query = connection_->statement("SELECT hash FROM passwords WHERE record = ?1");
  query.bind(1, record);
  if (!query.step()) return std::nullopt;
  return std::string(query.text(0));
}

void LocalStore::setPasswordHash(RecordNumber record, const std::string& hash) {
  SqliteTransaction transaction(*connection_, Kind::write);
  const std::string type = typeOf(record);
  connection_->statement("INSERT OR REPLACE INTO passwords(record, hash) VALUES(?1, ?2)")
      .bind(1, record)
      .bind(2, hash)
      .run();
  transaction.commit();
  noteChange(type);
}

std::unordered_map<std::string, std::string> LocalStore::passwordHashes() {
  SqliteStatement rows = connection_->statement(
      "SELECT v.value, p.hash FROM passwords p JOIN records r ON r.id = p.record JOIN vals v ON "
      "v.record = r.id WHERE r.type = ?1 AND v.position = 0 AND v.ordinal = 0");
  rows.bind(1, schema::kUsers);
  std::unordered_map<std::string, std::string> hashes;
  while (rows.step()) hashes.emplace(rows.text(0), rows.text(1));
  return hashes;
}

// --- Attribute names

std::optional<std::int64_t> LocalStore::attributeNumber(const std::string& name) {
  const auto known = attributeNumbers_.find(name);
  if (known != attributeNumbers_.end()) return known->second;
  SqliteStatement query = connection_->statement("SELECT id FROM attributes WHERE name = ?1");
  query.bind(1, name);
  if (!query.step()) return std::nullopt;
  const std::int64_t number = query.integer(0);
  attributeNumbers_.emplace(name, number);
  attributeNames_.emplace(number, name);
  return number;
}

std::int64_t LocalStore::attributeNumberOrNew(const std::string& name) {
  if (const auto number = attributeNumber(name)) return *number;
  connection_->statement("INSERT INTO attributes(name) VALUES(?1)").bind(1, name).run();
  return *attributeNumber(name);
}

const std::string& LocalStore::attributeName(std::int64_t number) {
  const auto known = attributeNames_.find(number);
  if (known != attributeNames_.end()) return known->second;
  loadAttributeNames();
  const auto loaded = attributeNames_.find(number);
  if (loaded == attributeNames_.end())
    throw DirectoryError(EIO, "directory database " + connection_->path() +
                                  ": a value of an attribute without a name");
  return loaded->second;
}

void LocalStore::loadAttributeNames() {
  SqliteStatement rows = connection_->statement("SELECT id, name FROM attributes");
  while (rows.step()) {
    attributeNames_.emplace(rows.integer(0), rows.text(1));
    attributeNumbers_.emplace(rows.text(1), rows.integer(0));
  }
}

}  // namespace paddock
