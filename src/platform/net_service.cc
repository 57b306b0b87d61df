#include "platform/net_service.h"

#include <algorithm>
#include <optional>
#include <tuple>

namespace paddock {

namespace {

constexpr const char* kFirstKey = "sys";

bool isKey(std::string_view key) {
  return !key.empty() && std::all_of(key.begin(), key.end(), [](unsigned char byte) {
    return byte >= 0x20 && byte <= 0x7E && byte != '=';
  });
}

// The digits at the end of a key, without zeros before them.
std::string_view numberIn(std::string_view key) {
  key.remove_prefix(key.find_last_not_of("0123456789") + 1);
  return key.substr(std::min(key.find_first_not_of('0'), key.size()));
}

bool comesBefore(std::string_view left, std::string_view right) {
  if (left == kFirstKey || right == kFirstKey) return left == kFirstKey && right != kFirstKey;
  const std::string_view leftNumber = numberIn(left);
  const std::string_view rightNumber = numberIn(right);
  const auto leftName = left.substr(0, left.find_last_not_of("0123456789") + 1);
  const auto rightName = right.substr(0, right.find_last_not_of("0123456789") + 1);
  return std::tuple(leftName, leftNumber.size(), leftNumber, left) <
         std::tuple(rightName, rightNumber.size(), rightNumber, right);
}

std::optional<std::string_view> bytesOf(const Value& value) {
  if (const std::string* text = value.string()) return *text;
  const Data* data = value.data();
  if (data == nullptr) return std::nullopt;
  return std::string_view(reinterpret_cast<const char*>(data->bytes.data()), data->bytes.size());
}

void appendEntry(const std::string& key, const Value& value, Data& record) {
  const auto bytes = bytesOf(value);
  if (!bytes || !isKey(key) || !fitsTxtString(key, *bytes)) return;
  const std::string text = key + "=" + std::string(*bytes);
  record.bytes.push_back(static_cast<std::uint8_t>(text.size()));
  record.bytes.insert(record.bytes.end(), text.begin(), text.end());
}

}  // namespace

std::size_t txtStringSize(std::string_view key, std::string_view value) {
  return 1 + key.size() + 1 + value.size();
}

bool fitsTxtString(std::string_view key, std::string_view value) {
  return txtStringSize(key, value) <= 1 + kMaximumTxtString;
}

Data dataFromTxtRecordDictionary(const Dictionary& entries) {
  std::vector<const Dictionary::Entry*> ordered;
  ordered.reserve(entries.size());
  for (const Dictionary::Entry& entry : entries) ordered.push_back(&entry);
  std::sort(ordered.begin(), ordered.end(),
            [](const auto* left, const auto* right) { return comesBefore(left->key, right->key); });
  Data record;
  for (const Dictionary::Entry* entry : ordered) appendEntry(entry->key, entry->value, record);
  return record;
}

bool stringsOfTxtRecord(const Data& data, std::vector<std::string>& strings) {
  strings.clear();
  for (std::size_t at = 0; at < data.bytes.size();) {
    const std::size_t length = data.bytes[at++];
    if (length > data.bytes.size() - at) return false;
    strings.emplace_back(data.bytes.begin() + static_cast<std::ptrdiff_t>(at),
                         data.bytes.begin() + static_cast<std::ptrdiff_t>(at + length));
    at += length;
  }
  return true;
}

}  // namespace paddock
