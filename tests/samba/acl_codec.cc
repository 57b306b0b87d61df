// Decodes and encodes ACL attributes, a line each, for tests in other languages.
//
//   decode HEX                        -> CONTROL OWNER GROUP LIST, or "invalid"
//   encode CONTROL OWNER GROUP LIST   -> HEX, or "impossible"
//
// CONTROL is hexadecimal, OWNER and GROUP are SIDs, LIST is entries with ";" between them, each
// TYPE,FLAGS,MASK,SID,FOREIGN (numbers in hexadecimal, FOREIGN the bytes of an entry of another
// type, or nothing). "-" stands for an absent one, "." for an empty list.
#include <cstdio>
#include <iostream>
#include <sstream>
#include <vector>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/sid_forms.h"
#include "support/hex_bytes.h"

namespace {

namespace nt_acl = paddock::nt_acl;

constexpr const char* kAbsent = "-";
constexpr const char* kEmpty = ".";

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> fields;
  std::istringstream stream(text);
  for (std::string field; std::getline(stream, field, separator);) fields.push_back(field);
  return fields;
}

template <typename Number>
Number number(const std::string& text) {
  return static_cast<Number>(std::stoul(text, nullptr, 16));
}

std::string hex(const std::string& bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (const char character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
  }
  return text;
}

std::string hexNumber(unsigned long value) {
  std::ostringstream stream;
  stream << std::hex << value;
  return stream.str();
}

std::optional<nt_acl::Sid> parsePart(const std::string& text) {
  if (text == kAbsent) return std::nullopt;
  return nt_acl::parseSid(text).value();
}

nt_acl::Ace parseAce(const std::string& text) {
  const auto fields = split(text, ',');
  return {number<std::uint8_t>(fields.at(0)), number<std::uint8_t>(fields.at(1)),
          number<std::uint32_t>(fields.at(2)), nt_acl::parseSid(fields.at(3)).value(),
          fields.size() > 4 ? paddock::hexBytes(fields.at(4)) : std::string()};
}

std::optional<std::vector<nt_acl::Ace>> parseList(const std::string& text) {
  if (text == kAbsent) return std::nullopt;
  std::vector<nt_acl::Ace> list;
  if (text == kEmpty) return list;
  for (const std::string& entry : split(text, ';')) list.push_back(parseAce(entry));
  return list;
}

std::string partText(const std::optional<nt_acl::Sid>& sid) {
  return sid ? nt_acl::sidText(*sid) : kAbsent;
}

std::string aceText(const nt_acl::Ace& ace) {
  return hexNumber(ace.type) + "," + hexNumber(ace.flags) + "," + hexNumber(ace.mask) + "," +
         nt_acl::sidText(ace.sid) + "," + hex(ace.foreign);
}

std::string listText(const std::optional<std::vector<nt_acl::Ace>>& list) {
  if (!list) return kAbsent;
  if (list->empty()) return kEmpty;
  std::string text;
  for (const nt_acl::Ace& ace : *list) text += (text.empty() ? "" : ";") + aceText(ace);
  return text;
}

std::string decoded(const std::string& value) {
  const auto read = nt_acl::decode(value);
  if (!read) return "invalid";
  return hexNumber(read->control) + " " + partText(read->owner) + " " + partText(read->group) +
         " " + listText(read->list);
}

std::string answerTo(const std::string& line) {
  const auto words = split(line, ' ');
  if (words.at(0) == "decode") return decoded(words.size() > 1 ? paddock::hexBytes(words[1]) : "");
  if (words.at(0) != "encode") throw std::invalid_argument(words[0]);
  const auto value = nt_acl::encode({number<std::uint16_t>(words.at(1)), parsePart(words.at(2)),
                                     parsePart(words.at(3)), parseList(words.at(4))});
  return value ? hex(*value) : "impossible";
}

}  // namespace

int main() {
  try {
    for (std::string line; std::getline(std::cin, line);) std::cout << answerTo(line) << '\n';
  } catch (const std::exception& error) {
    std::fprintf(stderr, "acl_codec: %s\n", error.what());
    return 1;
  }
  return 0;
}
