// The records of the local directory node, on an open database. Not thread-safe.
//
// Names and values that come in are text (see directory_values.h) unless said otherwise. Records
// are identified by their number, which is never reused. Every change is a transaction of its own;
// an operation that throws has changed nothing. ENOENT for the number of a deleted record.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/value.h"
#include "platform/directory_values.h"
#include "platform/linux/database/sqlite.h"

namespace paddock {

using RecordNumber = std::int64_t;

class LocalStore {
 public:
  explicit LocalStore(std::unique_ptr<SqliteConnection> connection);

  SqliteConnection& connection() { return *connection_; }

  // Unique identifier of this directory.
  std::string identity();

  std::optional<RecordNumber> find(const std::string& name, const std::string& type);
  // The answers of the node's searches; texts that come in may be anything.
  Array recordsWithValue(const std::vector<std::string>& types, const std::string& attribute,
                         const std::string& value);
  Array recordsWithName(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type);
  // All attributes of the record, RecordType included, in the order in which they were first set.
  std::vector<AttributeChange> read(RecordNumber record);

  RecordNumber create(const std::string& name, const std::string& type);
  void remove(RecordNumber record);
  // A change without effect is not written.
  void change(RecordNumber record, const std::vector<AttributeChange>& changes);

  std::optional<std::string> passwordHash(RecordNumber record);
  void setPasswordHash(RecordNumber record, const std::string& hash);
  // Every user's, by the first name of the record.
  std::unordered_map<std::string, std::string> passwordHashes();

  // Whether a user, a group or a password has changed here since the last call. A record that was
  // created counts from its first attribute on: a name alone is no account.
  bool takeAccountChange() { return std::exchange(accountsChanged_, false); }

 private:
  // An attribute as it is stored.
  struct Stored {
    std::int64_t position = 0;
    std::int64_t number = 0;
    std::vector<std::string> values;
  };
  struct Record {
    std::string type;
    std::vector<Stored> attributes;  // by position, RecordName first

    const Stored* find(std::int64_t number) const;
  };
  // The attributes that an answer carries.
  struct Wanted {
    bool all = false;
    bool type = false;
    std::vector<std::int64_t> numbers;

    bool has(std::int64_t number) const;
  };

  Record load(RecordNumber record);
  std::string typeOf(RecordNumber record);
  bool isMade(const Record& record, const std::vector<AttributeChange>& changes);
  bool isMade(const Record& record, const AttributeChange& change);
  void make(RecordNumber number, Record& record, const AttributeChange& change);
  void rename(RecordNumber number, const Record& record, const std::vector<std::string>& names);
  void erase(RecordNumber number, Record& record, std::int64_t attribute);
  void store(RecordNumber number, Record& record, const AttributeChange& change,
             std::int64_t position);
  void eraseNames(RecordNumber number, const Record& record);
  void insertName(RecordNumber number, const std::string& type, const std::string& name);
  void noteChange(const std::string& type);

  std::optional<std::int64_t> attributeNumber(const std::string& name);
  std::int64_t attributeNumberOrNew(const std::string& name);
  const std::string& attributeName(std::int64_t number);
  void loadAttributeNames();

  Wanted wanted(const std::vector<std::string>& attributes);
  // Appends an answer per record of the rows (record, type, attribute, value), which are
  // sorted, when `types` is null or has its type. The numbers of the records go to `order`.
  void collect(SqliteStatement& rows, const Wanted& wanted, const std::vector<std::string>* types,
               Array& answers, std::vector<RecordNumber>& order);

  std::unique_ptr<SqliteConnection> connection_;
  // The table of attribute names. Only grows; forgotten when a transaction failed.
  std::unordered_map<std::int64_t, std::string> attributeNames_;
  std::unordered_map<std::string, std::int64_t> attributeNumbers_;
  bool accountsChanged_ = false;
};

}  // namespace paddock
