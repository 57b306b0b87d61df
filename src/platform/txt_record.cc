#include "platform/txt_record.h"

#include <algorithm>
#include <optional>

namespace paddock {

namespace {

constexpr const char* kFirstKey = "sys";

bool isKey(std::string_view key) {
  return !key.empty() && std::all_of(key.begin(), key.end(), [](unsigned char byte) {
    return byte >= 0x20 && byte <= 0x7E && byte != '=';
  });
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

bool fitsTxtString(std::string_view key, std::string_view value) {
  return key.size() + 1 + value.size() <= kMaximumTxtString;
}

Data dataFromTxtRecordDictionary(const Dictionary& entries) {
  Data record;
  if (const Value* first = entries.find(kFirstKey)) appendEntry(kFirstKey, *first, record);
  for (const auto& [key, value] : entries) {
    if (key != kFirstKey) appendEntry(key, value, record);
  }
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
