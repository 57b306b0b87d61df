#include "base/value.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "base/text.h"

namespace paddock {

namespace {

bool keyBefore(const Dictionary::Entry& entry, std::string_view key) { return entry.key < key; }

template <typename Entries>
auto lowerBound(Entries& entries, std::string_view key) {
  return std::lower_bound(entries.begin(), entries.end(), key, keyBefore);
}

}  // namespace

Dictionary::Dictionary() = default;
Dictionary::Dictionary(const Dictionary& other) = default;
Dictionary::Dictionary(Dictionary&& other) noexcept = default;
Dictionary& Dictionary::operator=(const Dictionary& other) = default;
Dictionary& Dictionary::operator=(Dictionary&& other) noexcept = default;
Dictionary::~Dictionary() = default;

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
  reserve(entries.size());
  for (const Entry& entry : entries) set(entry.key, entry.value);
}

std::optional<Dictionary> Dictionary::fromEntries(std::vector<Entry> entries,
                                                  std::string* repeatedKey) {
  std::sort(entries.begin(), entries.end(),
            [](const Entry& left, const Entry& right) { return left.key < right.key; });
  const auto repeated = std::adjacent_find(
      entries.begin(), entries.end(),
      [](const Entry& left, const Entry& right) { return left.key == right.key; });
  if (repeated != entries.end()) {
    if (repeatedKey != nullptr) *repeatedKey = repeated->key;
    return std::nullopt;
  }
  std::erase_if(entries, [](const Entry& entry) { return entry.value.isNull(); });
  Dictionary result;
  result.entries_ = std::move(entries);
  return result;
}

void Dictionary::reserve(std::size_t size) { entries_.reserve(size); }
bool Dictionary::empty() const { return entries_.empty(); }
std::size_t Dictionary::size() const { return entries_.size(); }
Dictionary::const_iterator Dictionary::begin() const { return entries_.begin(); }
Dictionary::const_iterator Dictionary::end() const { return entries_.end(); }
bool Dictionary::contains(std::string_view key) const { return find(key) != nullptr; }

const Value* Dictionary::find(std::string_view key) const {
  const auto found = lowerBound(entries_, key);
  return found != entries_.end() && found->key == key ? &found->value : nullptr;
}

Value* Dictionary::find(std::string_view key) {
  const auto found = lowerBound(entries_, key);
  return found != entries_.end() && found->key == key ? &found->value : nullptr;
}

void Dictionary::set(std::string key, Value value) {
  if (value.isNull()) {
    erase(key);
    return;
  }
  const auto place = lowerBound(entries_, key);
  if (place != entries_.end() && place->key == key) {
    place->value = std::move(value);
  } else {
    entries_.insert(place, Entry{std::move(key), std::move(value)});
  }
}

bool Dictionary::erase(std::string_view key) {
  const auto found = lowerBound(entries_, key);
  if (found == entries_.end() || found->key != key) return false;
  entries_.erase(found);
  return true;
}

const std::string* Dictionary::string(std::string_view key) const {
  const Value* value = find(key);
  return value != nullptr ? value->string() : nullptr;
}

const Array* Dictionary::array(std::string_view key) const {
  const Value* value = find(key);
  return value != nullptr ? value->array() : nullptr;
}

const Dictionary* Dictionary::dictionary(std::string_view key) const {
  const Value* value = find(key);
  return value != nullptr ? value->dictionary() : nullptr;
}

std::optional<std::int64_t> Dictionary::integer(std::string_view key) const {
  return readInteger(find(key));
}

std::optional<bool> Dictionary::boolean(std::string_view key) const {
  return readBoolean(find(key));
}

bool operator==(const Dictionary& left, const Dictionary& right) {
  return left.entries_ == right.entries_;
}

Value::Value(unsigned long number) : Value(fromUnsigned(number)) {}
Value::Value(unsigned long long number) : Value(fromUnsigned(number)) {}

Value Value::fromUnsigned(std::uint64_t number) {
  constexpr auto kLargestSigned =
      static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  Value value;
  if (number <= kLargestSigned) {
    value.storage_ = static_cast<std::int64_t>(number);
  } else {
    value.storage_ = number;
  }
  return value;
}

bool Value::isNumber() const {
  return boolean() != nullptr || integer() != nullptr || unsignedInteger() != nullptr;
}

bool operator==(const Value& left, const Value& right) { return left.storage_ == right.storage_; }

std::optional<std::int64_t> readInteger(const Value* value) {
  if (value == nullptr) return std::nullopt;
  if (const auto* integer = value->integer()) return *integer;
  if (const auto* boolean = value->boolean()) return *boolean ? 1 : 0;
  if (const auto* text = value->string()) return parseInteger(*text);
  return std::nullopt;
}

std::optional<bool> readBoolean(const Value* value) {
  if (value == nullptr) return std::nullopt;
  if (const auto* boolean = value->boolean()) return *boolean;
  if (const auto* integer = value->integer()) return *integer != 0;
  if (value->unsignedInteger() != nullptr) return true;
  if (const auto* text = value->string()) return readBoolean(*text);
  return std::nullopt;
}

std::optional<bool> readBoolean(std::string_view text) {
  const std::string lower = asciiLower(text);
  if (lower == "1" || lower == "yes" || lower == "true") return true;
  if (lower == "0" || lower == "no" || lower == "false") return false;
  return std::nullopt;
}

}  // namespace paddock
