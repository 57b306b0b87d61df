#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace paddock {

namespace {

struct LeadByte {
  std::size_t continuationBytes;
  unsigned char secondLow;
  unsigned char secondHigh;
};

// The well-formed byte sequences of RFC 3629, section 4, by their first byte.
std::optional<LeadByte> classifyLead(unsigned char lead) {
  if (lead < 0x80) return LeadByte{0, 0, 0};
  if (lead < 0xC2) return std::nullopt;
  if (lead < 0xE0) return LeadByte{1, 0x80, 0xBF};
  if (lead == 0xE0) return LeadByte{2, 0xA0, 0xBF};
  if (lead == 0xED) return LeadByte{2, 0x80, 0x9F};
  if (lead < 0xF0) return LeadByte{2, 0x80, 0xBF};
  if (lead == 0xF0) return LeadByte{3, 0x90, 0xBF};
  if (lead < 0xF4) return LeadByte{3, 0x80, 0xBF};
  if (lead == 0xF4) return LeadByte{3, 0x80, 0x8F};
  return std::nullopt;
}

// How many bytes at the front are ASCII, counted in whole words: up to seven more may follow.
std::size_t asciiPrefix(std::string_view text) {
  std::size_t size = 0;
  std::uint64_t word = 0;
  while (text.size() - size >= sizeof word) {
    std::memcpy(&word, text.data() + size, sizeof word);
    if ((word & 0x8080808080808080U) != 0) break;
    size += sizeof word;
  }
  return size;
}

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

}  // namespace

std::string asciiLower(std::string_view text) {
  std::string lower(text);
  for (char& character : lower) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return lower;
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stopped != end) return std::nullopt;
  return number;
}

std::int32_t leadingInteger(std::string_view text) {
  using Limits = std::numeric_limits<std::int32_t>;
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t number = 0;
  for (const char digit : text.substr(0, text.find_first_not_of("0123456789"))) {
    number = std::min<std::int64_t>(number * 10 + (digit - '0'), std::int64_t{Limits::max()} + 1);
  }
  return static_cast<std::int32_t>(
      std::min<std::int64_t>(negative ? -number : number, Limits::max()));
}

bool isValidUtf8(std::string_view text) {
  for (std::size_t at = asciiPrefix(text); at < text.size(); at += asciiPrefix(text.substr(at))) {
    const std::size_t size = utf8CharacterSize(text.substr(at));
    if (size == 0) return false;
    at += size;
  }
  return true;
}

std::size_t utf8CharacterSize(std::string_view text) {
  if (text.empty()) return 0;
  const auto lead = classifyLead(static_cast<unsigned char>(text.front()));
  if (!lead || text.size() <= lead->continuationBytes) return 0;
  for (std::size_t next = 1; next <= lead->continuationBytes; ++next) {
    const auto byte = static_cast<unsigned char>(text[next]);
    const unsigned char low = next == 1 ? lead->secondLow : 0x80;
    const unsigned char high = next == 1 ? lead->secondHigh : 0xBF;
    if (byte < low || byte > high) return 0;
  }
  return lead->continuationBytes + 1;
}

std::size_t utf8Length(std::string_view text) {
  std::size_t length = 0;
  for (const char byte : text) {
    if (!isContinuation(byte)) ++length;
  }
  return length;
}

std::string_view utf8Prefix(std::string_view text, std::size_t count) {
  std::size_t at = 0;
  while (at < text.size()) {
    if (!isContinuation(text[at])) {
      if (count == 0) break;
      --count;
    }
    ++at;
  }
  return text.substr(0, at);
}

namespace {

bool isControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first < 0x20 || first == 0x7F;
  return character.size() == 2 && first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

// Line and paragraph separators, and what reorders the text beside it. (Letters that are written
// from right to left are none of these.)
bool reordersText(std::string_view character) {
  if (character == "\xD8\x9C") return true;
  if (character.size() != 3) return false;
  const std::string_view block = character.substr(0, 2);
  const auto last = static_cast<unsigned char>(character[2]);
  const bool isMark = last == 0x8E || last == 0x8F;
  return (block == "\xE2\x80" && (isMark || (last >= 0xA8 && last <= 0xAE))) ||
         (block == "\xE2\x81" && last >= 0xA6 && last <= 0xA9);
}

void appendHexadecimal(std::string& out, std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  for (const char byte : bytes) {
    out += "\\x";
    out += kDigits[static_cast<unsigned char>(byte) >> 4U];
    out += kDigits[static_cast<unsigned char>(byte) & 15U];
  }
}

std::string escape(std::string_view text, bool keepLineFeeds) {
  std::string out;
  while (!text.empty()) {
    const std::size_t size = utf8CharacterSize(text);
    const std::string_view character = text.substr(0, size == 0 ? 1 : size);
    const bool kept = keepLineFeeds && character == "\n";
    if (!kept && (size == 0 || isUnprintable(character))) {
      appendHexadecimal(out, character);
    } else {
      out += character;
    }
    text.remove_prefix(character.size());
  }
  return out;
}

}  // namespace

bool isUnprintable(std::string_view character) {
  return !character.empty() && (isControl(character) || reordersText(character));
}

std::string printable(std::string_view text) { return escape(text, false); }
std::string printableLines(std::string_view text) { return escape(text, true); }

namespace {

std::vector<std::size_t> columnWidths(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], utf8Length(row[column]));
    }
  }
  return widths;
}

}  // namespace

std::string formatTable(const std::vector<std::vector<std::string>>& rows) {
  const auto widths = columnWidths(rows);
  std::string table;
  for (const auto& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      table += row[column];
      if (column + 1 == row.size()) break;
      table.append(widths[column] - utf8Length(row[column]) + 2, ' ');
    }
    table += '\n';
  }
  return table;
}

}  // namespace paddock
