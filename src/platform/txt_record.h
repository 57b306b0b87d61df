// The data of a DNS-SD service's TXT record (RFC 6763, section 6).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace paddock {

// The longest "KEY=VALUE", in bytes.
inline constexpr std::size_t kMaximumTxtString = 255;
// The longest record: what fits into the largest packet of Ethernet, of 9,000 bytes.
inline constexpr std::size_t kMaximumTxtRecord = 8900;

// The bytes of one string of a record, "KEY=VALUE" with its length.
std::size_t txtStringSize(std::string_view key, std::string_view value);
// Whether "KEY=VALUE" fits into one string of a TXT record.
bool fitsTxtString(std::string_view key, std::string_view value);

// One string per key, "sys" first and the others in the order of their keys, in which the digits at
// the end count as a number ("dk2" before "dk10"): its length in one byte, the key, "=" and the
// bytes of the value, which is data or text. An entry that is neither, or does not fit, is left
// out; a key is printable ASCII without "=".
Data dataFromTxtRecordDictionary(const Dictionary& entries);

// The strings of a TXT record; false when the data is none: a string that is longer than what is
// left.
bool stringsOfTxtRecord(const Data& data, std::vector<std::string>& strings);

}  // namespace paddock
