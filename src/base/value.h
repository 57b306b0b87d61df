// The value tree: what requests, replies, configurations and contexts are made of.
//
// A value is one of: null, boolean, signed 64-bit integer, unsigned 64-bit integer,
// string (UTF-8), data (bytes), array, dictionary. The kinds are kept apart: a boolean
// never compares equal to an integer. An unsigned integer is only used above INT64_MAX,
// so that one number has one representation (see `Value::fromUnsigned`).
//
// Null stands for "no value". It is never stored in a dictionary: setting a key to null
// removes the key.
//
// Values own everything below them; copying copies the whole tree. No operation is
// synchronised: one tree belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace paddock {

class Value;
using Array = std::vector<Value>;

struct Data {
  std::vector<std::uint8_t> bytes;
  friend bool operator==(const Data&, const Data&) = default;
};

// String keys to values, iterated in ascending byte order of the keys.
class Dictionary {
 public:
  struct Entry;
  using const_iterator = std::vector<Entry>::const_iterator;

  Dictionary();
  // Later entries win over earlier ones with the same key.
  Dictionary(std::initializer_list<Entry> entries);
  Dictionary(const Dictionary& other);
  Dictionary(Dictionary&& other) noexcept;
  Dictionary& operator=(const Dictionary& other);
  Dictionary& operator=(Dictionary&& other) noexcept;
  ~Dictionary();

  // Builds from entries in any order in O(n log n). Null values are left out. Nullopt when a
  // key is repeated; `repeatedKey`, when given, then holds it.
  static std::optional<Dictionary> fromEntries(std::vector<Entry> entries,
                                               std::string* repeatedKey = nullptr);

  bool empty() const;
  std::size_t size() const;
  const_iterator begin() const;
  const_iterator end() const;
  bool contains(std::string_view key) const;

  // The value of `key`, or null when there is none. The pointer is valid until the
  // dictionary changes.
  const Value* find(std::string_view key) const;
  Value* find(std::string_view key);

  // Makes room for `size` entries.
  void reserve(std::size_t size);
  // Sets `key`, replacing an earlier value; a null value removes the key.
  void set(std::string key, Value value);
  // True when the key was there.
  bool erase(std::string_view key);

  // Typed readers. A value of another kind reads as absent.
  const std::string* string(std::string_view key) const;
  const Array* array(std::string_view key) const;
  const Dictionary* dictionary(std::string_view key) const;
  // The reading rules of `readInteger` and `readBoolean` below.
  std::optional<std::int64_t> integer(std::string_view key) const;
  std::optional<bool> boolean(std::string_view key) const;

  friend bool operator==(const Dictionary& left, const Dictionary& right);

 private:
  std::vector<Entry> entries_;
};

class Value {
 public:
  using Storage = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, std::string, Data,
                               Array, Dictionary>;

  Value() = default;
  // NOLINTBEGIN(google-explicit-constructor): what reads as a value is one
  Value(std::nullptr_t) {}
  Value(bool boolean) : storage_(boolean) {}
  Value(int number) : storage_(std::int64_t{number}) {}
  Value(unsigned number) : storage_(std::int64_t{number}) {}
  Value(long number) : storage_(std::int64_t{number}) {}
  Value(long long number) : storage_(std::int64_t{number}) {}
  Value(unsigned long number);
  Value(unsigned long long number);
  Value(const char* text) : storage_(std::string(text)) {}
  Value(std::string_view text) : storage_(std::string(text)) {}
  Value(std::string text) : storage_(std::move(text)) {}
  Value(Data data) : storage_(std::move(data)) {}
  Value(Array array) : storage_(std::move(array)) {}
  Value(Dictionary dictionary) : storage_(std::move(dictionary)) {}
  // NOLINTEND(google-explicit-constructor)

  // Signed up to INT64_MAX, unsigned above.
  static Value fromUnsigned(std::uint64_t number);

  bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }
  const bool* boolean() const { return std::get_if<bool>(&storage_); }
  const std::int64_t* integer() const { return std::get_if<std::int64_t>(&storage_); }
  const std::uint64_t* unsignedInteger() const { return std::get_if<std::uint64_t>(&storage_); }
  const std::string* string() const { return std::get_if<std::string>(&storage_); }
  const Data* data() const { return std::get_if<Data>(&storage_); }
  const Array* array() const { return std::get_if<Array>(&storage_); }
  Array* array() { return std::get_if<Array>(&storage_); }
  const Dictionary* dictionary() const { return std::get_if<Dictionary>(&storage_); }
  Dictionary* dictionary() { return std::get_if<Dictionary>(&storage_); }

  // A boolean or an integer of either sign.
  bool isNumber() const;

  const Storage& storage() const { return storage_; }

  friend bool operator==(const Value& left, const Value& right);

 private:
  Storage storage_;
};

struct Dictionary::Entry {
  std::string key;
  Value value;
  friend bool operator==(const Entry&, const Entry&) = default;
};

// Reads an integer: an integer as itself, a boolean as 0 or 1, a string of an optional
// sign and decimal digits (and nothing else) as its number. Absent for everything else and for
// what does not fit. `value` may be null.
std::optional<std::int64_t> readInteger(const Value* value);

// Reads a boolean: a boolean as itself, an integer as "not 0", the strings 1/0, yes/no and
// true/false in any letter case. Absent for everything else. `value` may be null.
std::optional<bool> readBoolean(const Value* value);
std::optional<bool> readBoolean(std::string_view text);

}  // namespace paddock
